#include "support/text_utilities.h"

#include <gtest/gtest.h>

#include <clocale>

using namespace KestSupport;
using namespace std::string_literals;
using Texts = std::vector<std::string>;

TEST(TextUtilities, CopyAndConvertIntoBuffersWithRoomForTheTerminator) {
    char text[] = "~~~~~~";
    unsigned short units[] = {7, 7, 7, 7, 7, 7, 7};
    for (const int size : {0, 3})
        EXPECT_TRUE(!KestStringToChar("abc", text, size) && !KestStringToWideChar("abc", units, size)) << size;
    EXPECT_TRUE(!KestStringToChar("", nullptr, 9) && !KestStringToWideChar("", nullptr, 9) && units[0] == 7);
    EXPECT_EQ(KestStringToChar("abc", text + 1, 4), text + 1);
    EXPECT_EQ(std::string(text, 6), "~abc\0~"s);
    EXPECT_EQ(KestStringFromChar(KestStringToChar("", text, -1)), "") << "a negative size is a large one";
    const std::string before = std::setlocale(LC_ALL, nullptr);
    const std::tuple<const char*, std::string, std::u16string, std::string> rows[] = {
        {"C.UTF-8", "\xC3\xA9\xF0\x9F\x98\x80", u"\u00E9\U0001F600\0"s, "\xC3\xA9\xF0"},
        {"C.UTF-8", "a\xE2\x82\0x"s, u"a\0"s, "a"},
        {"C.UTF-8", "a\xF4\x90\x80\x80z", u"a\0"s, "a"},
        {"C", "a\x7F\x80\xFF", u"a\u007F\u0080\u00FF\0"s, "a\x7F\x80\xFF"}};
    for (const auto& [locale, bytes, expected, back] : rows) {
        std::setlocale(LC_ALL, locale);
        EXPECT_EQ(KestStringToWideChar(bytes, units, 7), units);
        EXPECT_EQ(std::u16string(units, units + expected.size()), expected) << bytes;
        EXPECT_EQ(KestStringFromWideChar(units), back);
    }
    const unsigned short wide[][4] = {{'a', 0x20AC}, {'a', 0xD83D, 'z'}, {'a', 0xD83D}, {'a', 0xDE00, 0xDE00}};
    for (const auto& unconvertible : wide)
        EXPECT_EQ(KestStringFromWideChar(unconvertible) + KestStringFromWideChar(nullptr), "a");
    std::setlocale(LC_ALL, before.c_str());
}

TEST(TextUtilities, ReadAnyPairOfCharactersAsAHexadecimalByte) {
    std::string pairs, values;
    for (int pair = 0; pair < 65536; ++pair) {
        const auto value = [](char c) { return c >= 'a' ? c - 32 - 55 : c >= 'A' ? c - 55 : c - 48; };
        pairs += {static_cast<char>(pair >> 8), static_cast<char>(pair)};
        values += static_cast<char>(value(pairs.end()[-2]) * 16 | value(pairs.back()));
    }
    const std::pair<std::string, std::string> rows[] = {
        {"7", ""},          {"abc", "\xAB"},
        {"0aFf", "\n\xFF"}, {"0GG0//\xFF\x30", "\x10\0\xFF\xF0"s},
        {pairs, values},    {KestBytesToHex(values.data(), 65536), values}};
    for (const auto& [hex, bytes] : rows) {
        std::string out(bytes.size() + 1, '~');
        EXPECT_EQ(KestHexToBytes(out.data(), hex), static_cast<int>(bytes.size()));
        EXPECT_TRUE(out == bytes + '~') << hex;
    }
    EXPECT_EQ(KestBytesToHex("\x01\xAB\0\x9F", 4) + KestBytesToHex("a", 0) + KestBytesToHex("a", -1), "01AB009F");
}

TEST(TextUtilities, SplitAtDelimitersOrAtTheEndsOfItems) {
    const std::tuple<std::string, std::string, Texts, std::string> rows[] = {
        {",;a;,b,", ";,", {"a", "b"}, ",;a\0,b\0"s},
        {"a b\0c"s, " ", {"a", "b"}, "a\0b\0c"s},
        {"a,b", ";\0,"s, {"a,b"}, "a,b"},
        {",,", ",", {}, ",,"}};
    Texts out;
    for (auto [text, delimiters, tokens, left] : rows) {
        out = {text, delimiters};
        KestTokenizer(out[0], out[1], out);
        EXPECT_EQ(out, tokens) << "out of what the result held";
        KestTokenizer(text.data(), delimiters, out);
        EXPECT_TRUE(out == tokens && text == left) << text;
    }
    for (auto [list, items] : {std::pair("a\0bc\0\0d\0"s, Texts{"a", "bc"}), std::pair("\0a\0"s, Texts{})}) {
        KestTokenizer(list.data(), out = {"old"});
        EXPECT_EQ(out, items);
        KestTokenizer(list, out);
        EXPECT_EQ(out, items.empty() ? items : Texts{"a"}) << "a string is one item";
    }
    Texts none{"old"};
    KestTokenizer(static_cast<char*>(nullptr), ",", none);
    KestTokenizer(static_cast<char*>(nullptr), out = {"old"});
    EXPECT_TRUE(none.empty() && out.empty());
}

TEST(TextUtilities, KeepWhatStandsBetweenDoubleQuotesTogether) {
    const std::pair<std::string, Texts> lines[] = {{"", {"old"}},
                                                   {"\0a"s, {}},
                                                   {"  a  b\tc 'd e' ", {"a", "b\tc", "'d", "e'"}},
                                                   {"a \"x y\" b\"c d\"e z\0w"s, {"a", "x y", "bc de", "z"}},
                                                   {"a\"b c", {"ab c"}},
                                                   {" \"x y\"a\" b\" \"\" c\"\" \"", {"x ya b", "c"}},
                                                   {"\"a b\"\"c d\" e\"f\"\"g\" \"b  c ", {"a bc d", "efg", "b  c "}}};
    for (const auto& [line, tokens] : lines) {
        Texts out{"old"};
        KestParseCommandLine(line, out);
        EXPECT_EQ(out, tokens) << line;
    }
    const std::tuple<std::string, std::string, std::string> texts[] = {
        {"ab", "ab", ""},           {" a\tb", "", "a\tb"},   {"a\t b", "a", " b"},        {"\"", "", ""},
        {"\"x y\" z", "x y", " z"}, {"\"x y", "x y", "x y"}, {"a\"b c\"", "a\"b", "c\""}, {"", "", ""}};
    for (const auto& [text, first, rest] : texts) {
        std::string line = text;
        EXPECT_TRUE(KestExtractFirstString(line, line) == first && line == rest) << text << '|' << line;
    }
}
