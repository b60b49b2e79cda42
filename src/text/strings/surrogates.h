// Between the wide characters of the C and C++ runtimes and 16-bit units. Where a wide character has more than 16 bits,
// one beyond the basic plane is a pair of surrogates in units; where it has 16 itself, nothing changes.
#pragma once

#include <cstddef>
#include <string_view>

#include "support/strings.h"

namespace KestSupport::internal {

inline constexpr char32_t kFirstHighSurrogate = 0xD800;
inline constexpr char32_t kFirstLowSurrogate = 0xDC00;
inline constexpr char32_t kEndOfSurrogates = 0xE000;
inline constexpr char32_t kFirstBeyondBasicPlane = 0x10000;
inline constexpr char32_t kLastCharacter = 0x10FFFF;

/// Writes the units of a character and returns their number; 0 for a value beyond Unicode, which some runtimes take out
/// of UTF-8.
inline std::size_t unitsOf(wchar_t character, unsigned short (&units)[2]) {
    const auto code = static_cast<char32_t>(character);
    if (code > kLastCharacter) return 0;
    if (code < kFirstBeyondBasicPlane) {
        units[0] = static_cast<unsigned short>(code);
        return 1;
    }
    const char32_t offset = code - kFirstBeyondBasicPlane;
    units[0] = static_cast<unsigned short>(kFirstHighSurrogate + (offset >> 10));
    units[1] = static_cast<unsigned short>(kFirstLowSurrogate + (offset & 0x3FF));
    return 2;
}

/// Reads the character that a text, which is not empty, begins with, and returns the number of its units; 0 for a
/// surrogate without its partner.
inline std::size_t characterOf(basic_text_view<unsigned short> text, wchar_t& character) {
    char32_t code = text[0];
    std::size_t units = 1;
    if (sizeof(wchar_t) > sizeof(unsigned short) && code >= kFirstHighSurrogate && code < kEndOfSurrogates) {
        const char32_t low = text.size() > 1 ? text[1] : 0;
        if (code >= kFirstLowSurrogate || low < kFirstLowSurrogate || low >= kEndOfSurrogates) return 0;
        code = kFirstBeyondBasicPlane + ((code - kFirstHighSurrogate) << 10) + (low - kFirstLowSurrogate);
        units = 2;
    }
    character = static_cast<wchar_t>(code);
    return units;
}

}  // namespace KestSupport::internal
