// Code pages and length-prefixed wide strings.
#include "platform/text.h"

#include <numeric>
#include <tuple>

#include "kit/environment_guard.h"
#include "kit/failing_calls.h"

namespace {

using namespace KestSupport::platform;
using namespace std::string_literals;
using Units = std::vector<unsigned short>;

// Converts a text, and expects that a space of one unit less than the result has is refused and not exceeded.
template <auto convert, typename To, typename From>
To converted(CodePage page, const From& text) {
    To result(4 * text.size(), 0);
    result.resize(convert(page, text.data(), text.size(), result.data(), result.size()));
    constexpr typename To::value_type kUntouched = 0x5A;
    To tooShort(result.size(), kUntouched);
    EXPECT_EQ(convert(page, text.data(), text.size(), tooShort.data(), result.size() - 1), 0U);
    EXPECT_EQ(tooShort.back(), kUntouched);
    return result;
}

constexpr auto widened = converted<widenText, Units, std::string>;
constexpr auto narrowed = converted<narrowText, std::string, Units>;

Units unitsOf(const std::u16string& text) {
    return {text.begin(), text.end()};
}

CodePage pageOf(const std::string& locale) {
    kit::EnvironmentGuard environment;
    environment.setLocale(locale);
    return ansiCodePage();
}

TEST(Utf8, KeepsValidText) {
    const std::string bytes =
        "a\0b\x7F|\xC2\x80|\xDF\xBF|\xE0\xA0\x80|\xEF\xBF\xBF|\xED\x9F\xBF|\xEE\x80\x80|\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"s;
    const Units units = unitsOf(u"a\0b\x7F|\u0080|\u07FF|\u0800|\uFFFF|\uD7FF|\uE000|\U00010000\U0010FFFF"s);
    EXPECT_EQ(widened(kCodePageUtf8, bytes), units);
    EXPECT_EQ(narrowed(kCodePageUtf8, units), bytes);
    Units all;
    for (unsigned c = 0; c < 0x110000; ++c) {
        if (c >= 0x10000) all.push_back(static_cast<unsigned short>(0xD7C0 + (c >> 10)));
        if (c < 0xD800 || c > 0xDFFF)
            all.push_back(static_cast<unsigned short>(c < 0x10000 ? c : 0xDC00 | (c & 0x3FF)));
    }
    EXPECT_TRUE(widened(kCodePageUtf8, narrowed(kCodePageUtf8, all)) == all);
    // ASCII is converted in blocks, so other characters are put at each distance from the ends of blocks.
    for (std::size_t place = 0; place < 40; ++place) {
        const std::string text = std::string(place, 'a') + bytes + std::string(33, 'z') + bytes;
        EXPECT_EQ(narrowed(kCodePageUtf8, widened(kCodePageUtf8, text)), text);
    }
}

TEST(Utf8, ReplacesEachMaximalPartOfBrokenSequence) {
    const std::string bytes =
        "\x80\xBFx|\xC0\xAF\xC1\xBF|\xE0\x9F\xBF|\xED\xA0\x80\xED\xBF\xBF|\xF0\x8F\xBF\xBF|\xF4\x90\x80\x80\xF5\xFF|"
        "\xE2\x82x\xE2x|\xF0\x9F\x98\xC3\xA9\xF0\x9F\xC3\xA9|\xE2\xC3\xA9\xC3\xC3\xA9|";
    const std::string expected = "??x|????|???|??????|????|??????|?x?x|?\xE9?\xE9|?\xE9?\xE9|?";
    for (const std::string end : {"\xC3", "\xE2\x82", "\xF0\x9F\x98"}) {
        std::string found;
        for (const unsigned short unit : widened(kCodePageUtf8, bytes + end))
            found += unit == 0xFFFD ? '?' : static_cast<char>(unit);
        EXPECT_EQ(found, expected);
    }
    EXPECT_EQ(narrowed(kCodePageUtf8, unitsOf(u"\xDE00x|\xD83Dx\xDE00|\xD83D\xD83D\xDE00|\xDE00\xD83D")),
              "\xEF\xBF\xBDx|\xEF\xBF\xBDx\xEF\xBF\xBD|\xEF\xBF\xBD\xF0\x9F\x98\x80|\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(AnsiCodePage, IsCharacterSetOfEnvironment) {
    const std::tuple<std::vector<std::string>, std::string, std::u16string> rows[] = {
        {{"", "C", "POSIX", "xx_XX.no-such-set"}, "\x80\xE9", u"\u20AC\u00E9"},
        {{"C.UTF-8", "de_DE.utf8@euro"}, "\xE2\x82\xAC", u"\u20AC"},
        {{"de_DE.ISO-8859-1"}, "\xE9\xA4", u"\u00E9\u00A4"},
        {{"de_DE.ISO-8859-15@euro"}, "\xE9\xA4", u"\u00E9\u20AC"},
        {{"ru_RU.KOI8-R"}, "\xC1\xC2", u"\u0430\u0431"},
        {{"ja_JP.eucJP"}, "a\xC6\xFC\xCB\xDC", u"a\u65E5\u672C"},
    };
    for (const auto& [locales, bytes, units] : rows) {
        for (const std::string& locale : locales) {
            EXPECT_EQ(widened(pageOf(locale), bytes), unitsOf(units)) << locale;
            EXPECT_EQ(narrowed(pageOf(locale), unitsOf(units)), bytes) << locale;
        }
    }
    const kit::FailingCalls failing("openCharacterSet");
    EXPECT_EQ(pageOf("ko_KR.eucKR"), pageOf("C"));
}

TEST(AnsiCodePage, FollowsOrderOfVariables) {
    kit::EnvironmentGuard environment;
    environment.setLocale("C");
    for (const auto& [name, value, isUtf8] :
         {std::tuple("LC_CTYPE", "C.UTF-8", true), {"LC_ALL", "C", false}, {"LC_ALL", "", true}}) {
        environment.set(name, value);
        EXPECT_EQ(ansiCodePage() == kCodePageUtf8, isUtf8) << name << "=" << value;
    }
}

TEST(AnsiCodePage, ReplacesOnlyWhatItLacks) {
    EXPECT_EQ(narrowed(pageOf("C"), {'a', 0x430, 0xD83D, 0xDE00, 0xD83D, 0x20AC}), "a????\x80");
    const CodePage japanese = pageOf("ja_JP.eucJP");
    EXPECT_EQ(narrowed(japanese, {'a', 0xD83D, 0xDE00, 0x65E5, 0xDE00, 'z', 0xD83D}), "a??\xC6\xFC?z?");
    EXPECT_EQ(widened(japanese, "a\xFF\xC6\xFCz\xC6"), (Units{'a', '?', 0x65E5, 'z', '?'}));
    std::string bytes(256, '\0');
    std::iota(bytes.begin(), bytes.end(), '\0');
    EXPECT_EQ(narrowed(pageOf("C"), widened(pageOf("C"), bytes)), bytes);
}

TEST(AnsiCodePage, IsSharedByThreads) {
    const CodePage japanese = pageOf("ja_JP.eucJP");
    std::vector<std::jthread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([=] {
            const std::string text = "\xC6\xFC\xCB\xDC";
            for (int i = 0; i < 50; ++i)
                EXPECT_EQ(narrowed(japanese, widened(japanese, text)), text);
        });
    }
}

TEST(WideString, KnowsLengthAndEndsWithZeros) {
    unsigned short* const text = allocateWideString("abcde", 5);
    EXPECT_EQ(wideStringBytes(text), 5u);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(text), 7), "abcde\0\0"s);
    freeWideString(text);
}

TEST(UserLocaleId, ExistsOnlyForLanguagesWithoutCodePage) {
    kit::EnvironmentGuard environment;
    for (const auto& [locale, id] : {std::pair("hy_AM.UTF-8", 0x042Bu), std::pair("dz_BT", 0x0851u),
                                     std::pair("kok_IN@latin", 0x0457u), std::pair("de_DE.UTF-8", 0u)}) {
        environment.setLocale(locale);
        EXPECT_EQ(userLocaleId(), id) << locale;
    }
}

}  // namespace
