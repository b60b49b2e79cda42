// Code pages and length-prefixed wide strings.
#include "platform/text.h"

#include <numeric>

#include "platform/conversions.h"

namespace {

using namespace KestSupport::platform;
using namespace std::string_literals;

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
        // The ends of the text are converted in another way than its middle.
        for (std::size_t place = 0; place < 20; ++place) {
            std::string found;
            for (const unsigned short unit : widened(kCodePageUtf8, bytes + std::string(place, 'z') + bytes + end))
                found += unit == 0xFFFD ? '?' : static_cast<char>(unit);
            EXPECT_EQ(found, expected.substr(0, expected.size() - 1) + std::string(place, 'z') + expected);
        }
    }
    EXPECT_EQ(narrowed(kCodePageUtf8, unitsOf(u"\xDE00x|\xD83Dx\xDE00|\xD83D\xD83D\xDE00|\xDE00\xD83D")),
              "\xEF\xBF\xBDx|\xEF\xBF\xBDx\xEF\xBF\xBD|\xEF\xBF\xBD\xF0\x9F\x98\x80|\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(AnsiCodePage, ReplacesOnlyWhatItLacks) {
    EXPECT_EQ(narrowed(pageOf("C"), {'a', 0x430, 0xD83D, 0xDE00, 0xD83D, 0x20AC}), "a????\x80");
    std::string bytes(256, '\0');
    std::iota(bytes.begin(), bytes.end(), '\0');
    EXPECT_EQ(narrowed(pageOf("C"), widened(pageOf("C"), bytes)), bytes);
}

TEST(WideString, KnowsLengthAndEndsWithZeros) {
    unsigned short* const text = allocateWideString("abcde", 5);
    EXPECT_EQ(wideStringBytes(text), 5u);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(text), 7), "abcde\0\0"s);
    freeWideString(text);
}

}  // namespace
