// Copies into buffers, hexadecimal text, tokens and quotes.
#include "support/text_utilities.h"

#include <clocale>

#include "kit/system.h"

using namespace KestSupport;
using namespace std::string_literals;
using Texts = std::vector<std::string>;

TEST(TextUtilities, CopyIntoBuffersWithRoom) {
    char text[] = "~~~~~~";
    unsigned short units[] = {7, 7, 7, 7, 7, 7, 7};
    for (const int size : {0, 3, 9}) {
        EXPECT_EQ(KestStringToChar("abc", size == 9 ? nullptr : text, size), nullptr);
        EXPECT_EQ(KestStringToWideChar("abc", size == 9 ? nullptr : units, size), nullptr);
    }
    EXPECT_EQ(units[0], 7);
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
        if (std::setlocale(LC_ALL, locale) == nullptr && kit::namedLocale() == std::locale::classic()) continue;
        EXPECT_EQ(KestStringToWideChar(bytes, units, 7), units);
        EXPECT_EQ(std::u16string(units, units + expected.size()), expected) << bytes;
        EXPECT_EQ(KestStringFromWideChar(units), back);
    }
    const unsigned short wide[][4] = {{'a', 0x20AC}, {'a', 0xD83D, 'z'}, {'a', 0xD83D}, {'a', 0xDE00, 0xDE00}};
    for (const auto& unconvertible : wide)
        EXPECT_EQ(KestStringFromWideChar(unconvertible) + KestStringFromWideChar(nullptr), "a");
    std::setlocale(LC_ALL, before.c_str());
}

TEST(TextUtilities, ReadAnyPairAsAByte) {
    const std::string others = "\n\xFF\x10\0\xFF\xF0"s;
    for (const auto& [hex, bytes] : {std::pair("7"s, ""s), {"abc", "\xAB"}, {"0aFf0GG0//\xFF\x30", others}}) {
        std::string out(bytes.size() + 1, '~');
        EXPECT_EQ(KestHexToBytes(out.data(), hex), static_cast<int>(bytes.size()));
        EXPECT_EQ(out, bytes + '~') << hex;
    }
    EXPECT_EQ(KestBytesToHex("\x01\xAB\0\x9F", 4) + KestBytesToHex("a", 0) + KestBytesToHex("a", -1), "01AB009F");
}

TEST(TextUtilities, SplitAtDelimitersOrNuls) {
    Texts out = {",;a\0;b,", ";,"};
    KestTokenizer(out[0], out[1], out);
    EXPECT_EQ(out, Texts{"a"}) << "the arguments are items of the result";
    KestTokenizer(std::string("a\0bc\0\0d\0", 9).data(), out);
    EXPECT_EQ(out, (Texts{"a", "bc"}));
    KestTokenizer("a,b", ",", out);
    EXPECT_EQ(out, (Texts{"a", "b"}));
    KestTokenizer("a b\0c", out);
    EXPECT_EQ(out, Texts{"a b"});
    KestTokenizer(static_cast<char*>(nullptr), ",", out);
    EXPECT_EQ(out, Texts());
    KestTokenizer(static_cast<char*>(nullptr), out = {"old"});
    EXPECT_EQ(out, Texts());
}

TEST(TextUtilities, KeepQuotedTextTogether) {
    const std::pair<std::string, Texts> lines[] = {{"", {"old"}},
                                                   {"\0a"s, {}},
                                                   {"a  \"x y\" b\"c d\"e\t'z w'\0v"s, {"a", "x y", "bc de\t'z", "w'"}},
                                                   {" \"x y\"a\" b\" \"\" c\"\" \"", {"x ya b", "c"}},
                                                   {"\"a b\"\"c d\" e\"f\"\"g\" \"b  c ", {"a bc d", "efg", "b  c "}}};
    for (const auto& [line, tokens] : lines) {
        Texts out{"old"};
        KestParseCommandLine(line, out);
        EXPECT_EQ(out, tokens) << line;
    }
    std::string line = "\"x y\" z";
    EXPECT_EQ(KestExtractFirstString(line, line), "x y");
    EXPECT_EQ(line, " z") << "the rest replaces the text";
}
