// The case-insensitive order, the traits of 16-bit units, the conversions and the platform strings.
#include "support/strings.h"

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <stdexcept>
#include <typeinfo>

#include "kit/environment_guard.h"
#include "kit/failing_calls.h"
#include "kit/failure_of.h"
#include "kit/system.h"

namespace {

using namespace KestSupport;
using kit::failureOf;

const auto wide = [](const std::u16string& text) { return wstring16(text.begin(), text.end()); };

const std::locale utf8(std::locale::classic(), new utf8_ctype);

TEST(Strings, OrderByFoldedCharacters) {
    const std::map<string_ci, int> map = {{"Key", 1}, {"a_b", 2}, {"AB", 3}, {"\xE9", 4}, {"A", 5}, {"\xC9", 6}};
    EXPECT_EQ(map.count("KEY"), 1u);
    std::string order;
    for (const auto& entry : map)
        order.append(entry.first.data(), entry.first.size()) += ' ';
    EXPECT_EQ(order, "\xC9 \xE9 A a_b AB Key ");
    EXPECT_EQ(char_traits_ci<char>::compare("\xFFx", "\x01y", 2), -1);
    EXPECT_EQ(string_ci("path=VALUE").find("value"), 5u);
    EXPECT_EQ(string_ci("abc").find('d'), string_ci::npos);
    using Traits = char_traits_ci<unsigned short>;
    EXPECT_LT((wstring16_ci{'K', 'e', 'y'}), (wstring16_ci{'k', 'E', 'y', 0xFFFF}));
    const std::string before = std::setlocale(LC_ALL, nullptr);
    EXPECT_FALSE(Traits::eq(0x416, 0x436));
    ASSERT_NE(std::setlocale(LC_ALL, kit::kLocaleWithLetters), nullptr);
    EXPECT_TRUE(Traits::eq(0x416, 0x436));
    EXPECT_TRUE(Traits::eq(0x178, 0xFF));
    EXPECT_FALSE(Traits::eq(0xD801, 0xD800));
    EXPECT_FALSE(char_traits_ci<char>::eq('\xC9', '\xE9'));
    std::setlocale(LC_ALL, before.c_str());
}

TEST(Strings, HaveUnitTraitsLikeTheStandardOnes) {
    using Text = std::basic_string<unsigned short, internal::unit_traits>;
    std::vector<std::pair<wstring16, Text>> texts(1);
    for (std::size_t i = 0; texts.size() < 85; ++i)
        for (const unsigned short unit : u"\1\x8001\xFFFF")
            texts.emplace_back(texts[i].first + unit, texts[i].second + unit);
    for (const auto& [a, b] : texts) {
        EXPECT_TRUE(std::ranges::equal(a, b));
        EXPECT_EQ(Text(b.c_str()).size(), wstring16(a.c_str()).size());
        for (const auto& [other, same] : texts) {
            EXPECT_EQ(std::tuple(b < same, b == same, b.find(same, 1)),
                      std::tuple(a < other, a == other, a.find(other, 1)));
            EXPECT_EQ(wstring16(a).insert(0, other).replace(0, 1, a).compare(a),
                      Text(b).insert(0, same).replace(0, 1, b).compare(b));
        }
    }
    EXPECT_NE(internal::unit_traits::to_int_type(0xFFFF), internal::unit_traits::eof());
}

TEST(Strings, ConvertUpToAZero) {
    std::u16string many;
    std::string bytes;
    for (int i = 0; i < 1000; ++i) {
        many += u"A\u00E9\u20AC\U0001F600";
        bytes += "A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";
    }
    kit::EnvironmentGuard environment;
    environment.setLocale("zh_CN.GB18030");
    const std::locale ansi(std::locale::classic(), new ansi_ctype);
    EXPECT_EQ(KestStringUtilities::widen(bytes + '\0' + bytes, utf8), wide(many));
    EXPECT_EQ(KestStringUtilities::narrow(wide(many) + wstring16(1, 0) + wide(many), utf8), bytes);
    std::erase_if(many, [](char16_t unit) { return unit >= 0xD800; });  // what not each code page has
    EXPECT_EQ(KestStringUtilities::widen(KestStringUtilities::narrow(wide(many), ansi), ansi), wide(many));
    // Invalid text becomes longer than valid text of the same length.
    EXPECT_EQ(KestStringUtilities::widen(std::string(500, '\x80'), utf8), wstring16(500, 0xFFFD));
    EXPECT_EQ(KestStringUtilities::narrow(wstring16(500, 0xD800), utf8).size(), 1500u);
}

TEST(Strings, ConvertRangesWithoutATerminator) {
    const auto& facet = std::use_facet<wide_ctype>(utf8);
    const char source[] = "z\xC3\xA9";
    unsigned short units[13] = {7, 7, 7};
    EXPECT_EQ(facet.widen(source, source + 3, units), source + 3);
    EXPECT_EQ(wstring16(units, 3), (wstring16{'z', 0xE9, 7}));
    char bytes[9] = "~~~~~~~~";
    EXPECT_EQ(facet.narrow(units, units + 2, ' ', bytes), units + 2);
    EXPECT_STREQ(bytes, "z\xC3\xA9~~~~~");
    EXPECT_EQ(facet.widen('a', 'd'), 'd');
    EXPECT_EQ(facet.narrow('a', 'd'), 'd');
}

// A caller's facet, derived from a facet of the library. Its texts end early, and one conversion throws.
class LoudCtype : public utf8_ctype {
    const char* do_widen(const char* first, const char* last, char_type* dest) const override {
        dest[0] = static_cast<char_type>(*first - 'a' + 'A');
        dest[1] = 0;
        return last;
    }
    const char_type* do_narrow(const char_type*, const char_type*, char, char*) const override {
        throw std::length_error("too loud");
    }
};

TEST(Strings, ConvertByTheFacetOfTheLocale) {
    const std::locale loud(utf8, new LoudCtype);
    EXPECT_EQ(KestStringUtilities::widen("abc", loud), wide(u"A"));
    const std::string failed = ": ctype facet cannot be created for the locale - ";
    EXPECT_EQ(failureOf([&] { KestStringUtilities::narrow(wide(u"!"), loud); }),
              "KestStringUtilities::narrow" + failed + "too loud");
    EXPECT_EQ(failureOf([] { KestStringUtilities::widen("", std::locale::classic()); }),
              "KestStringUtilities::widen" + failed + std::bad_cast().what());
}

TEST(Strings, CopyToAndFromPlatformStrings) {
    const BSTR text = KestStringUtilities::makeBSTR(wide({u"ab\0c", 4}));
    const BSTR empty = KestStringUtilities::makeBSTR({});
    EXPECT_EQ(KestStringUtilities::widen(text), wide(u"ab"));
    EXPECT_EQ(SysStringByteLen(text), 4U);
    EXPECT_NE(empty, SysAllocString(nullptr)) << "only null has no string";
    EXPECT_EQ(KestStringUtilities::widen(BSTR{nullptr}), wstring16());
    const std::string reason = ": com_error exception converting BSTR - " + kit::systemText(14, ENOMEM);
    for (const int first : {1, 2}) {
        const kit::FailingCalls failing("allocateWideString", first);
        EXPECT_EQ(failureOf([] { KestStringUtilities::makeBSTR({}); }), "KestStringUtilities::makeBSTR" + reason);
        EXPECT_EQ(failureOf([&] { KestStringUtilities::widen(text); }), "KestStringUtilities::widen" + reason);
    }
    SysFreeString(text);
    SysFreeString(empty);
}

}  // namespace
