#include "support/strings.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <clocale>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <typeinfo>

#include "kit/environment_guard.h"
#include "platform/fault_seam.h"
#include "support/exceptions.h"

namespace {

using namespace KestSupport;

wstring16 wide(const std::u16string& text) {
    return {text.begin(), text.end()};
}

std::locale utf8Locale() {
    return {std::locale::classic(), new utf8_ctype};
}

std::locale ansiLocale(const std::string& environmentLocale) {
    kit::EnvironmentGuard environment;
    environment.setLocale(environmentLocale);
    return {std::locale::classic(), new ansi_ctype};
}

std::string textThrown(const std::function<void()>& action) {
    try {
        action();
    } catch (const KestException& e) {
        EXPECT_EQ(e.getCode(), 0);
        return e.getText();
    }
    return "nothing thrown";
}

TEST(Strings, NarrowFoldingOrdersHighBytesFirstAndTheUnderscoreBeforeLetters) {
    const std::map<string_ci, int> map = {{"Key", 1}, {"a_b", 2}, {"AB", 3}, {"\xE9", 4}, {"A", 5}, {"\xC9", 6}};
    EXPECT_EQ(map.count("KEY"), 1u);
    std::string order;
    for (const auto& entry : map)
        order += entry.first.c_str(), order += ' ';
    EXPECT_EQ(order, "\xC9 \xE9 A a_b AB Key ");
    const struct {
        const char* a;
        const char* b;
        int result;
    } rows[] = {{"abc", "ABC", 0}, {"abc", "ABD", -1}, {"ABD", "abc", 1}, {"\xFF", "\x01", -1}, {"\x80", "\xFF", -1}};
    for (const auto& row : rows) {
        EXPECT_EQ(char_traits_ci<char>::compare(row.a, row.b, std::strlen(row.a)), row.result) << row.a;
    }
    EXPECT_EQ(char_traits_ci<char>::compare("a", "b", 0), 0);
    EXPECT_TRUE(char_traits_ci<char>::eq('x', 'X'));
    EXPECT_TRUE(char_traits_ci<char>::lt('\xE9', 'A'));
    EXPECT_FALSE(char_traits_ci<char>::lt('a', 'A'));
    EXPECT_EQ(string_ci("path=VALUE").find("value"), 5u);
    EXPECT_EQ(char_traits_ci<char>::find("abc", 3, 'd'), nullptr);
}

TEST(Strings, WideFoldingFollowsTheCurrentLocaleAndNarrowFoldingKeepsHighBytes) {
    using Traits = char_traits_ci<unsigned short>;
    EXPECT_TRUE(Traits::eq('q', 'Q'));
    EXPECT_TRUE(Traits::lt('Z', 0xE9));
    const wstring16_ci key{'K', 'e', 'y'};
    EXPECT_EQ(key, (wstring16_ci{'k', 'E', 'Y'}));
    EXPECT_EQ(key.find('E'), 1u);
    EXPECT_LT(key, (wstring16_ci{'k', 'e', 'y', 0xFFFF}));
    const std::string before = std::setlocale(LC_ALL, nullptr);
    EXPECT_FALSE(Traits::eq(0x416, 0x436));
    ASSERT_NE(std::setlocale(LC_ALL, "C.UTF-8"), nullptr);
    EXPECT_TRUE(Traits::eq(0x416, 0x436));
    EXPECT_TRUE(Traits::eq(0x1E9E, 0xDF));
    EXPECT_FALSE(Traits::eq(0xD801, 0xD800));
    EXPECT_FALSE(char_traits_ci<char>::eq('\xC9', '\xE9'));
    EXPECT_TRUE(char_traits_ci<char>::lt('\xFF', '\0'));
    std::setlocale(LC_ALL, before.c_str());
}

TEST(Strings, ConversionsStopAtAZeroAndKeepAnyLength) {
    const std::locale utf8 = utf8Locale();
    const std::locale ansi = ansiLocale("C");
    const std::locale japanese = ansiLocale("ja_JP.eucJP");
    for (const std::locale& locale : {utf8, ansi, japanese}) {
        for (std::size_t length = 0; length < 200; length += length < 70 ? 1 : 13) {
            const std::string text(length, 'x');
            const wstring16 units(length, 'x');
            EXPECT_EQ(KestStringUtilities::widen(text, locale), units);
            EXPECT_EQ(KestStringUtilities::narrow(units, locale), text);
            EXPECT_EQ(KestStringUtilities::widen(text + '\0' + text, locale), units);
            EXPECT_EQ(KestStringUtilities::narrow(units + wstring16(1, 0) + units, locale), text);
        }
    }
    // A zero behind a character that needs the general way, and behind a broken one.
    EXPECT_EQ(KestStringUtilities::widen({"\xC3\xA9\0z", 4}, utf8), wide(u"\u00E9"));
    EXPECT_EQ(KestStringUtilities::widen({"\xE2\x82\0z", 4}, utf8), wide(u"\uFFFD"));
    EXPECT_EQ(KestStringUtilities::narrow(wide({u"\u00E9\0z", 3}), utf8), "\xC3\xA9");
}

TEST(Strings, ConversionsCarryTextsOfEveryKind) {
    const std::u16string text = u"A\u00E9\u20AC\U0001F600";
    std::u16string many;
    std::string bytes;
    for (int i = 0; i < 1000; ++i)
        many += text, bytes += "A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";
    for (const std::locale& locale : {utf8Locale(), ansiLocale("C.UTF-8")}) {
        EXPECT_EQ(KestStringUtilities::widen(bytes, locale), wide(many));
        EXPECT_EQ(KestStringUtilities::narrow(wide(many), locale), bytes);
    }
    EXPECT_EQ(KestStringUtilities::narrow(wide(text), ansiLocale("C")), "A\xE9\x80??");
    EXPECT_EQ(KestStringUtilities::narrow(wide(text), ansiLocale("de_DE.ISO-8859-15")), "A\xE9\xA4??");
    // Broken text is longer than text in order would be.
    EXPECT_EQ(KestStringUtilities::widen(std::string(500, '\x80'), utf8Locale()), wstring16(500, 0xFFFD));
    EXPECT_EQ(KestStringUtilities::narrow(wstring16(500, 0xD800), utf8Locale()).size(), 1500u);
}

TEST(Strings, FacetsConvertRangesWithoutATerminator) {
    const std::locale locale = utf8Locale();
    const auto& facet = std::use_facet<wide_ctype>(locale);
    const char source[] = "z\xC3\xA9";
    unsigned short units[13] = {7, 7, 7};
    EXPECT_EQ(facet.widen(source, source + 3, units), source + 3);
    EXPECT_EQ(wstring16(units, 3), (wstring16{'z', 0xE9, 7}));
    char bytes[9] = "~~~~~~~~";
    EXPECT_EQ(facet.narrow(units, units + 2, ' ', bytes), units + 2);
    EXPECT_STREQ(bytes, "z\xC3\xA9~~~~~");
    EXPECT_EQ(facet.widen('a', 'd'), 'd');
    EXPECT_EQ(facet.narrow('a', 'd'), 'd');
    EXPECT_THROW(std::use_facet<ansi_ctype>(locale), std::bad_cast);
}

// Shouts, and ends its texts early: a facet of the caller's own, derived from one of the library's.
class LoudCtype : public utf8_ctype {
  protected:
    const char* do_widen(const char* first, const char* last, char_type* dest) const override {
        for (const char* p = first; p != last; ++p)
            *dest++ = static_cast<char_type>(*p == '.' ? 0 : *p - 32);
        return last;
    }
    const char_type* do_narrow(const char_type*, const char_type* last, char dflt, char* dest) const override {
        *dest = dflt;
        if (last[-1] == '!') throw std::length_error("too loud");
        return last;
    }
};

TEST(Strings, ConversionsUseTheFacetThatTheLocaleCarries) {
    const std::locale loud(utf8Locale(), new LoudCtype);
    EXPECT_EQ(KestStringUtilities::widen("abc.def", loud), wide(u"ABC"));
    EXPECT_EQ(KestStringUtilities::narrow(wide(u"abc"), loud), " ");
    const std::string widenFailed = "KestStringUtilities::widen: ctype facet cannot be created for the locale - ";
    const std::string narrowFailed = "KestStringUtilities::narrow: ctype facet cannot be created for the locale - ";
    const std::string badCast = std::bad_cast().what();
    const auto none = std::locale::classic();
    EXPECT_EQ(textThrown([&] { KestStringUtilities::narrow(wide(u"!"), loud); }), narrowFailed + "too loud");
    EXPECT_EQ(textThrown([&] { KestStringUtilities::narrow(wide(u"a"), none); }), narrowFailed + badCast);
    EXPECT_EQ(textThrown([&] { KestStringUtilities::widen("", none); }), widenFailed + badCast);
}

struct FreeBstr {
    void operator()(BSTR text) const { SysFreeString(text); }
};

TEST(Strings, BstrsHoldTheTextUpToItsFirstZero) {
    const std::unique_ptr<unsigned short, FreeBstr> made(KestStringUtilities::makeBSTR(wide({u"ab\0c", 4})));
    EXPECT_EQ(SysStringByteLen(made.get()), 4u);
    EXPECT_EQ(made.get()[2], 0);
    EXPECT_EQ(KestStringUtilities::widen(made.get()), wide(u"ab"));
    const std::unique_ptr<unsigned short, FreeBstr> empty(KestStringUtilities::makeBSTR({}));
    EXPECT_EQ(SysStringByteLen(empty.get()), 0u);
    EXPECT_NE(empty, nullptr);
    EXPECT_EQ(KestStringUtilities::widen(BSTR{nullptr}), wstring16());
    EXPECT_EQ(SysAllocString(nullptr), nullptr);
    // An odd length: the last byte is the low half of a unit.
    const std::unique_ptr<unsigned short, FreeBstr> odd(SysAllocStringByteLen("a\0b", 3));
    EXPECT_EQ(KestStringUtilities::widen(odd.get()), wide(u"ab"));
}

int g_allocationsLeft = 0;

int failAllocation(const char* call) noexcept {
    return std::strcmp(call, "malloc") == 0 && g_allocationsLeft-- <= 0 ? ENOMEM : 0;
}

TEST(Strings, BstrsThatFindNoMemoryThrowWithTheSystemsText) {
    const BSTR text = SysAllocString(wide(u"text").c_str());
    const std::string reason = std::string(": com_error exception converting BSTR - ") + std::strerror(ENOMEM);
    platform::setFaultHook(failAllocation);
    for (const int before : {0, 1}) {
        g_allocationsLeft = before;
        EXPECT_EQ(textThrown([] { KestStringUtilities::makeBSTR(wide(u"text")); }),
                  "KestStringUtilities::makeBSTR" + reason);
    }
    g_allocationsLeft = 0;
    EXPECT_EQ(textThrown([&] { KestStringUtilities::widen(text); }), "KestStringUtilities::widen" + reason);
    platform::setFaultHook(nullptr);
    SysFreeString(text);
}

}  // namespace
