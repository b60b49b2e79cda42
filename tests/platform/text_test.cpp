#include "platform/text.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include "kit/environment_guard.h"
#include "platform/fault_seam.h"

namespace {

using namespace KestSupport::platform;
using Units = std::vector<unsigned short>;

constexpr unsigned short R = 0xFFFD;

// Converts with just the room needed, checks that nothing behind it is touched and that one less is not enough.
template <typename To, typename From>
To converted(std::size_t (*convert)(CodePage, const typename From::value_type*, std::size_t, typename To::value_type*,
                                    std::size_t),
             CodePage page, const From& text) {
    constexpr typename To::value_type untouched = 0x5A;
    To result(4 * text.size() + 1, untouched);
    const std::size_t written = convert(page, text.data(), text.size(), result.data(), 4 * text.size());
    for (std::size_t room = written == 0 ? 0 : written - 1; room <= written; ++room) {
        To exact(room + 1, untouched);
        EXPECT_EQ(convert(page, text.data(), text.size(), exact.data(), room), room == written ? written : 0);
        EXPECT_EQ(exact.back(), untouched);
    }
    result.resize(written);
    return result;
}

Units widened(CodePage page, const std::string& text) {
    return converted<Units>(widenText, page, text);
}
std::string narrowed(CodePage page, const Units& units) {
    return converted<std::string>(narrowText, page, units);
}

CodePage pageOf(const std::string& locale) {
    kit::EnvironmentGuard environment;
    environment.setLocale(locale);
    return ansiCodePage();
}

TEST(Text, Utf8GivesOneReplacementForEachMaximalPartOfABrokenSequence) {
    const struct {
        std::string text;
        Units units;
    } rows[] = {
        {"", {}},
        {{"a\0b", 3}, {'a', 0, 'b'}},
        {"\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF", {0x7F, 0x80, 0x7FF, 0x800, 0xFFFF}},
        {"\xED\x9F\xBF\xEE\x80\x80", {0xD7FF, 0xE000}},
        {"\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", {0xD800, 0xDC00, 0xDBFF, 0xDFFF}},
        {"\x80\xBFx", {R, R, 'x'}},
        {"\xC0\xAF\xC1\xBF", {R, R, R, R}},
        {"\xE0\x9F\xBF", {R, R, R}},
        {"\xED\xA0\x80\xED\xBF\xBF", {R, R, R, R, R, R}},
        {"\xF0\x8F\xBF\xBF", {R, R, R, R}},
        {"\xF4\x90\x80\x80\xF5\xFF", {R, R, R, R, R, R}},
        {"\xE2\x82x\xE2x", {R, 'x', R, 'x'}},
        {"\xF0\x9F\x98\xC3\xA9\xF0\x9F\xC3\xA9", {R, 0xE9, R, 0xE9}},
        {"\xC3", {R}},
        {"\xE2\x82", {R}},
        {"\xF0\x9F\x98", {R}},
        {"\xE2\xC3\xA9\xC3\xC3\xA9", {R, 0xE9, R, 0xE9}},
    };
    for (const auto& row : rows)
        EXPECT_EQ(widened(codePageUtf8, row.text), row.units) << testing::PrintToString(row.text);
}

TEST(Text, Utf8ReplacesSurrogatesWithoutTheirPartner) {
    const struct {
        Units units;
        std::string text;
    } rows[] = {
        {{'a', 0, 'b'}, {"a\0b", 3}},
        {{0x7F, 0x80, 0x7FF, 0x800, 0xFFFF}, "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF"},
        {{0xD7FF, 0xE000}, "\xED\x9F\xBF\xEE\x80\x80"},
        {{0xD800, 0xDC00, 0xDBFF, 0xDFFF}, "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"},
        {{0xD83D}, "\xEF\xBF\xBD"},
        {{0xDE00, 'x'}, "\xEF\xBF\xBDx"},
        {{0xD83D, 'x', 0xDE00}, "\xEF\xBF\xBDx\xEF\xBF\xBD"},
        {{0xD83D, 0xD83D, 0xDE00}, "\xEF\xBF\xBD\xF0\x9F\x98\x80"},
        {{0xDE00, 0xD83D}, "\xEF\xBF\xBD\xEF\xBF\xBD"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(narrowed(codePageUtf8, row.units), row.text);
}

TEST(Text, Utf8CarriesEachCharacterAtEachPlaceOfABlock) {
    // ASCII is copied in blocks: what is not ASCII is put at each distance from their borders.
    for (const std::string odd : {"\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80"}) {
        for (std::size_t place = 0; place < 40; ++place) {
            const std::string text = std::string(place, 'a') + odd + odd + std::string(33, 'z');
            const Units units = widened(codePageUtf8, text);
            EXPECT_EQ(units.size(), place + (odd.size() == 4 ? 4 : 2) + 33);
            EXPECT_EQ(narrowed(codePageUtf8, units), text);
        }
    }
    for (char32_t c = 0; c < 0x110000; ++c) {
        if (c >= 0xD800 && c < 0xE000) continue;
        const auto high = static_cast<unsigned short>(0xD7C0 + (c >> 10));
        const auto low = static_cast<unsigned short>(0xDC00 | (c & 0x3FF));
        const Units units = c < 0x10000 ? Units{static_cast<unsigned short>(c)} : Units{high, low};
        char bytes[8];
        unsigned short back[8];
        const std::size_t length = narrowText(codePageUtf8, units.data(), units.size(), bytes, sizeof bytes);
        const std::size_t count = widenText(codePageUtf8, bytes, length, back, std::size(back));
        ASSERT_EQ(Units(back, back + count), units) << static_cast<unsigned>(c);
    }
}

TEST(Text, AnsiCodePageIsTheCharacterSetOfTheEnvironment) {
    const struct {
        const char* locale;
        std::string bytes;
        Units units;
    } rows[] = {
        {"", "\x80\xE9", {0x20AC, 0xE9}},
        {"C", "\x80\xE9", {0x20AC, 0xE9}},
        {"POSIX", "\x80\xE9", {0x20AC, 0xE9}},
        {"xx_XX.no-such-set", "\x80\xE9", {0x20AC, 0xE9}},
        {"C.UTF-8", "\xE2\x82\xAC", {0x20AC}},
        {"de_DE.utf8@euro", "\xE2\x82\xAC", {0x20AC}},
        {"de_DE.ISO-8859-1", "\xE9\xA4", {0xE9, 0xA4}},
        {"de_DE.ISO-8859-15@euro", "\xE9\xA4", {0xE9, 0x20AC}},
        {"ru_RU.KOI8-R", "\xC1\xC2", {0x430, 0x431}},
        {"ja_JP.eucJP", "a\xC6\xFC\xCB\xDC", {'a', 0x65E5, 0x672C}},
    };
    for (const auto& row : rows) {
        const CodePage page = pageOf(row.locale);
        EXPECT_EQ(widened(page, row.bytes), row.units) << row.locale;
        EXPECT_EQ(narrowed(page, row.units), row.bytes) << row.locale;
        EXPECT_EQ(pageOf(row.locale), page);
    }
}

TEST(Text, ACharacterSetThatCannotBeOpenedGivesWayToThatOfC) {
    setFaultHook([](const char* call) noexcept { return std::strcmp(call, "iconv_open") == 0 ? EMFILE : 0; });
    EXPECT_EQ(pageOf("ko_KR.eucKR"), pageOf("C"));
    setFaultHook(nullptr);
}

TEST(Text, EnvironmentVariablesDecideInTheirOrder) {
    kit::EnvironmentGuard environment;
    environment.setLocale("de_DE.ISO-8859-15");
    const CodePage latin = ansiCodePage();
    EXPECT_NE(latin, codePageUtf8);
    environment.set("LC_CTYPE", "C.UTF-8");
    EXPECT_EQ(ansiCodePage(), codePageUtf8);
    environment.set("LC_ALL", "de_DE.ISO-8859-15");
    EXPECT_EQ(ansiCodePage(), latin);
    environment.set("LC_ALL", "");
    EXPECT_EQ(ansiCodePage(), codePageUtf8);
}

TEST(Text, AnsiCodePageReplacesEachUnitThatItLacks) {
    EXPECT_EQ(narrowed(pageOf("C"), {'a', 0x430, 0xD83D, 0xDE00, 0xD83D, 0x20AC}), "a????\x80");
    EXPECT_EQ(narrowed(pageOf("de_DE.ISO-8859-1"), {0x20AC, 0xE9}), "?\xE9");
    const CodePage japanese = pageOf("ja_JP.eucJP");
    EXPECT_EQ(narrowed(japanese, {'a', 0xD83D, 0xDE00, 0x65E5, 0xDE00, 'z', 0xD83D}), "a??\xC6\xFC?z?");
    EXPECT_EQ(widened(japanese, "a\xFF\xC6\xFCz\xC6"), (Units{'a', '?', 0x65E5, 'z', '?'}));
}

TEST(Text, Windows1252CarriesEveryByteThereAndBack) {
    std::string bytes(256, '\0');
    std::iota(bytes.begin(), bytes.end(), '\0');
    EXPECT_EQ(narrowed(pageOf("C"), widened(pageOf("C"), bytes)), bytes);
}

TEST(Text, ThreadsShareCharacterSets) {
    kit::EnvironmentGuard environment;
    environment.setLocale("ja_JP.eucJP");
    std::vector<std::thread> threads;
    std::atomic<int> good{0};
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            const std::string text = "\xC6\xFC\xCB\xDC";
            for (int k = 0; k < 50; ++k)
                good += narrowed(ansiCodePage(), widened(ansiCodePage(), text)) == text ? 1 : 0;
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(good, 200);
}

TEST(Text, WideStringsKnowTheirLengthAndEndWithAZero) {
    for (const std::string data : {"", "a", "ab", "abcde"}) {
        unsigned short* text = allocateWideString(data.data(), static_cast<unsigned>(data.size()));
        ASSERT_NE(text, nullptr);
        const char* bytes = reinterpret_cast<const char*>(text);
        EXPECT_EQ(wideStringBytes(text), data.size());
        EXPECT_EQ(std::string(bytes, data.size()), data);
        EXPECT_EQ(std::string(bytes + data.size(), 2), std::string(2, '\0'));
        freeWideString(text);
    }
    EXPECT_EQ(wideStringBytes(nullptr), 0u);
    freeWideString(nullptr);
    unsigned short* room = allocateWideString(nullptr, 6);
    EXPECT_EQ(wideStringBytes(room), 6u);
    EXPECT_EQ(room[3], 0);
    freeWideString(room);
}

TEST(Text, UserLocaleIdsAreThoseOfLanguagesWithoutACodePage) {
    kit::EnvironmentGuard environment;
    const std::pair<const char*, std::uint32_t> rows[] = {
        {"hy_AM.UTF-8", 0x042B}, {"dz_BT", 0x0851}, {"kok_IN@latin", 0x0457}, {"de_DE.UTF-8", 0}, {"C", 0}};
    for (const auto& [locale, id] : rows) {
        environment.setLocale(locale);
        EXPECT_EQ(userLocaleId(), id) << locale;
    }
}

}  // namespace
