// The pairs of 16-bit units with which UTF-16 represents the characters from U+10000 on.
//
//   character  high unit  low unit
//   U+10000    D800       DC00
//   U+1F600    D83D       DE00
//   U+10FFFF   DBFF       DFFF
#pragma once

#include <cstddef>

namespace KestSupport::platform {

inline constexpr char32_t kFirstPairedCharacter = 0x10000;
inline constexpr char32_t kLastCharacter = 0x10FFFF;

constexpr bool isSurrogate(char32_t unit) {
    return (unit & 0xF800) == 0xD800;
}
constexpr bool isHighSurrogate(char32_t unit) {
    return (unit & 0xFC00) == 0xD800;
}
constexpr bool isLowSurrogate(char32_t unit) {
    return (unit & 0xFC00) == 0xDC00;
}

/// Returns the character of a high and a low surrogate.
constexpr char32_t characterOfPair(char32_t high, char32_t low) {
    return kFirstPairedCharacter + ((high & 0x3FF) << 10) + (low & 0x3FF);
}

/// Writes the units of a character up to kLastCharacter; returns their number, 1 or 2.
constexpr std::size_t writeUnits(char32_t character, unsigned short* units) {
    if (character < kFirstPairedCharacter) {
        units[0] = static_cast<unsigned short>(character);
        return 1;
    }
    units[0] = static_cast<unsigned short>(0xD7C0 + (character >> 10));
    units[1] = static_cast<unsigned short>(0xDC00 | (character & 0x3FF));
    return 2;
}

}  // namespace KestSupport::platform
