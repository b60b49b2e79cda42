#include "platform/posix/posix_code_pages.h"

#include <langinfo.h>
#include <locale.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <string>
#include <string_view>

#include "platform/text.h"

namespace KestSupport::platform {
namespace {

constexpr CodePage codePage1252 = 1252;

// The units of the bytes 0x80 to 0x9F; the other bytes are their own units.
constexpr unsigned short units1252[32] = {0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                          0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
                                          0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                          0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

// The variable that decides, in the order that the C runtime looks at them; an empty one counts as absent.
std::string environmentLocale() {
    for (const char* variable : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const char* value = std::getenv(variable);
        if (value != nullptr && *value != '\0') return value;
    }
    return "C";
}

std::string charsetOf(const std::string& locale) {
    if (const std::size_t dot = locale.find('.'); dot != std::string::npos) {
        return locale.substr(dot + 1, locale.find('@', dot) - dot - 1);
    }
    return {};
}

bool isUtf8(std::string_view charset) {
    std::string letters;
    for (const char c : charset) {
        if (c != '-') letters += c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c;
    }
    return letters == "utf8";
}

}  // namespace

CodePage ansiCodePage() {
    return isUtf8(charsetOf(environmentLocale())) ? codePageUtf8 : codePage1252;
}

std::size_t widenCharset(unsigned, const char* text, std::size_t length, unsigned short* dest, std::size_t capacity) {
    if (length > capacity) return 0;
    std::transform(text, text + length, dest, [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte >= 0x80 && byte < 0xA0 ? units1252[byte - 0x80] : static_cast<unsigned short>(byte);
    });
    return length;
}

std::size_t narrowCharset(unsigned, const unsigned short* text, std::size_t length, char* dest, std::size_t capacity) {
    if (length > capacity) return 0;
    std::transform(text, text + length, dest, [](unsigned short unit) {
        if (unit < 0x80 || (unit >= 0xA0 && unit < 0x100)) return static_cast<char>(unit);
        const auto* found = std::find(std::begin(units1252), std::end(units1252), unit);
        return found == std::end(units1252) ? '?' : static_cast<char>(0x80 + (found - units1252));
    });
    return length;
}

}  // namespace KestSupport::platform
