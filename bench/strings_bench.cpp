// Conversion between UTF-8 and 16-bit units: short and long ASCII, and long text of many scripts.
#include <support/strings.h>

#include <locale>
#include <string>

#include "bench_kit.h"

#ifdef KEST_HAVE_ICU
#include <unicode/unistr.h>
#endif

namespace {

using KestSupport::KestStringUtilities;
using KestSupport::wstring16;

constexpr std::size_t longText = 64 * 1024;

std::string repeated(const std::string& part, std::size_t size) {
    std::string text;
    while (text.size() + part.size() <= size)
        text += part;
    return text;
}

// Words of one to four bytes for each character, with blanks and digits between them, as catalogues have them.
const std::string mixedPart =
    "Disk C: 93% \xC3\xBC"
    "berf\xC3\xBCllt, \xD0\xB4\xD0\xB8\xD1\x81\xD0\xBA \xD0\xBF\xD0\xBE\xD0\xBB\xD0\xBE\xD0\xBD, "
    "\xE3\x83\x87\xE3\x82\xA3\xE3\x82\xB9\xE3\x82\xAF\xE3\x81\x8C\xE3\x81\x84\xE3\x81\xA3\xE3\x81\xB1\xE3\x81\x84 "
    "\xF0\x9F\x92\xBE 0x1F4BE; ";

std::locale utf8Locale() {
    return {std::locale::classic(), new KestSupport::utf8_ctype};
}

void compareConversions(const std::string& what, const std::string& text, double target) {
    const std::locale locale = utf8Locale();
    const wstring16 wide = KestStringUtilities::widen(text, locale);
    KestBench::Comparison widen("strings/widen " + what);
    widen.ours([=](benchmark::State& state) {
        for (auto _ : state)
            benchmark::DoNotOptimize(KestStringUtilities::widen(text, locale));
    });
    KestBench::Comparison narrow("strings/narrow " + what);
    narrow.ours([=](benchmark::State& state) {
        for (auto _ : state)
            benchmark::DoNotOptimize(KestStringUtilities::narrow(wide, locale));
    });
#ifdef KEST_HAVE_ICU
    widen.peer("ICU", target, [=](benchmark::State& state) {
        for (auto _ : state)
            benchmark::DoNotOptimize(icu::UnicodeString::fromUTF8(text));
    });
    narrow.peer("ICU", target, [=](benchmark::State& state) {
        const icu::UnicodeString units = icu::UnicodeString::fromUTF8(text);
        for (auto _ : state) {
            std::string result;
            benchmark::DoNotOptimize(units.toUTF8String(result));
        }
    });
#else
    static_cast<void>(target);
#endif
}

}  // namespace

void KestBench::registerBenches() {
    const std::string line = "Process 4711 uses 63% of memory. ";
    compareConversions("ASCII 32 B", line.substr(0, 32), 0.6);
    compareConversions("ASCII 64 KiB", repeated(line, longText), 0.15);
    compareConversions("mixed 64 KiB", repeated(mixedPart, longText), 1.0);
}
