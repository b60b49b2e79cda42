// Conversion between UTF-8 and 16-bit units, of short and long texts, in ASCII and in many scripts.
#include <support/strings.h>

#include <cstdint>
#include <locale>
#include <string>
#include <vector>

#include "bench_kit.h"

#ifdef KEST_HAVE_ICU
#include <unicode/unistr.h>
#include <unicode/ustring.h>
#endif

namespace {

using KestBench::Body;
using KestSupport::KestStringUtilities;
using KestSupport::wstring16;

constexpr std::size_t longText = 64 * 1024;

std::string repeated(const std::string& part, std::size_t size) {
    std::string text;
    while (text.size() + part.size() <= size)
        text += part;
    return text;
}

// Words with one to four bytes for each character, separated by blanks and digits, as in message catalogues.
const std::string mixedPart =
    "Disk C: 93% \xC3\xBC"
    "berf\xC3\xBCllt, \xD0\xB4\xD0\xB8\xD1\x81\xD0\xBA \xD0\xBF\xD0\xBE\xD0\xBB\xD0\xBE\xD0\xBD, "
    "\xE3\x83\x87\xE3\x82\xA3\xE3\x82\xB9\xE3\x82\xAF\xE3\x81\x8C\xE3\x81\x84\xE3\x81\xA3\xE3\x81\xB1\xE3\x81\x84 "
    "\xF0\x9F\x92\xBE 0x1F4BE; ";

std::locale utf8Locale() {
    return {std::locale::classic(), new KestSupport::utf8_ctype};
}

void widenOurs(benchmark::State& state, const std::string& text) {
    const std::locale locale = utf8Locale();
    for (auto _ : state)
        benchmark::DoNotOptimize(KestStringUtilities::widen(text, locale));
}

void narrowOurs(benchmark::State& state, const std::string& text) {
    const std::locale locale = utf8Locale();
    const wstring16 wide = KestStringUtilities::widen(text, locale);
    for (auto _ : state)
        benchmark::DoNotOptimize(KestStringUtilities::narrow(wide, locale));
}

#ifdef KEST_HAVE_ICU
constexpr bool kHaveIcu = true;

void widenIcu(benchmark::State& state, const std::string& text) {
    for (auto _ : state)
        benchmark::DoNotOptimize(icu::UnicodeString::fromUTF8(text));
}

void narrowIcu(benchmark::State& state, const std::string& text) {
    const icu::UnicodeString units = icu::UnicodeString::fromUTF8(text);
    for (auto _ : state) {
        std::string result;
        benchmark::DoNotOptimize(units.toUTF8String(result));
    }
}

// Converts into a buffer that is large enough and reused.
void widenIntoBuffer(benchmark::State& state, const std::string& text) {
    std::vector<UChar> units(text.size() + 1);
    for (auto _ : state) {
        std::int32_t length = 0;
        UErrorCode error = U_ZERO_ERROR;
        u_strFromUTF8(units.data(), static_cast<std::int32_t>(units.size()), &length, text.data(),
                      static_cast<std::int32_t>(text.size()), &error);
        benchmark::DoNotOptimize(length);
        benchmark::ClobberMemory();
    }
}

void narrowIntoBuffer(benchmark::State& state, const std::string& text) {
    const icu::UnicodeString units = icu::UnicodeString::fromUTF8(text);
    std::vector<char> bytes(text.size() + 1);
    for (auto _ : state) {
        std::int32_t length = 0;
        UErrorCode error = U_ZERO_ERROR;
        u_strToUTF8(bytes.data(), static_cast<std::int32_t>(bytes.size()), &length, units.getBuffer(), units.length(),
                    &error);
        benchmark::DoNotOptimize(length);
        benchmark::ClobberMemory();
    }
}
#else
constexpr bool kHaveIcu = false;

void widenIcu(benchmark::State&, const std::string&) {}
void narrowIcu(benchmark::State&, const std::string&) {}
void widenIntoBuffer(benchmark::State&, const std::string&) {}
void narrowIntoBuffer(benchmark::State&, const std::string&) {}
#endif

using Conversion = void (*)(benchmark::State& state, const std::string& text);

Body with(Conversion conversion, const std::string& text) {
    return [=](benchmark::State& state) { conversion(state, text); };
}

Body withIcu(Conversion conversion, const std::string& text) {
    return kHaveIcu ? with(conversion, text) : KestBench::kMissing;
}

void compareConversions(const std::string& what, const std::string& text, double target) {
    const std::string kept = " into a kept buffer";
    KestBench::Comparison("strings/widen " + what)
        .ours(with(widenOurs, text))
        .peer("ICU", target, withIcu(widenIcu, text))
        .peer("u_strFromUTF8" + kept, withIcu(widenIntoBuffer, text));
    KestBench::Comparison("strings/narrow " + what)
        .ours(with(narrowOurs, text))
        .peer("ICU", target, withIcu(narrowIcu, text))
        .peer("u_strToUTF8" + kept, withIcu(narrowIntoBuffer, text));
}

}  // namespace

void KestBench::registerBenches() {
    const std::string line = "Process 4711 uses 63% of memory. ";
    compareConversions("ASCII 32 B", line.substr(0, 32), 0.7);
    compareConversions("mixed 32 B", mixedPart.substr(20, 32), 1.2);
    compareConversions("ASCII 64 KiB", repeated(line, longText), 0.15);
    compareConversions("mixed 64 KiB", repeated(mixedPart, longText), 1.0);
    Growth("strings/widen mixed", "copies of 88 B")
        .at({1, 10, 100, 1000, 10000}, [](benchmark::State& state, int count) {
            widenOurs(state, repeated(mixedPart, mixedPart.size() * static_cast<std::size_t>(count)));
        });
}
