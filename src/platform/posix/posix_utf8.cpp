#include "platform/posix/posix_utf8.h"

namespace KestSupport::platform {
namespace {

// A character and the number of source units that it, or the maximal part of a broken sequence, takes.
struct Decoded {
    char32_t character;
    std::size_t taken;
};

constexpr Decoded broken(std::size_t taken) {
    return {replacementUnit, taken};
}

// What a lead byte says: how many bytes follow, its own share of the character, and the range of the first that
// follows, which alone tells overlong forms, surrogates and values beyond U+10FFFF from good ones.
struct Lead {
    std::size_t trailing;
    char32_t bits;
    unsigned char lowest;
    unsigned char highest;
};

constexpr Lead readLead(unsigned char byte) {
    if (byte >= 0xC2 && byte <= 0xDF) return {1, byte & 0x1Fu, 0x80, 0xBF};
    if ((byte & 0xF0) == 0xE0) {
        return {2, byte & 0x0Fu, static_cast<unsigned char>(byte == 0xE0 ? 0xA0 : 0x80),
                static_cast<unsigned char>(byte == 0xED ? 0x9F : 0xBF)};
    }
    if (byte >= 0xF0 && byte <= 0xF4) {
        return {3, byte & 0x07u, static_cast<unsigned char>(byte == 0xF0 ? 0x90 : 0x80),
                static_cast<unsigned char>(byte == 0xF4 ? 0x8F : 0xBF)};
    }
    return {0, 0, 0, 0};
}

// Reads one character that is not ASCII.
Decoded decodeUtf8(const unsigned char* text, std::size_t length) {
    const Lead lead = readLead(text[0]);
    if (lead.trailing == 0) return broken(1);
    char32_t character = lead.bits;
    unsigned char lowest = lead.lowest;
    unsigned char highest = lead.highest;
    for (std::size_t i = 1; i <= lead.trailing; ++i) {
        if (i == length || text[i] < lowest || text[i] > highest) return broken(i);
        character = (character << 6) | (text[i] & 0x3Fu);
        lowest = 0x80;
        highest = 0xBF;
    }
    return {character, lead.trailing + 1};
}

constexpr bool isHighSurrogate(char32_t unit) {
    return (unit & 0xFC00) == 0xD800;
}
constexpr bool isLowSurrogate(char32_t unit) {
    return (unit & 0xFC00) == 0xDC00;
}

// Reads one character from units.
Decoded decodeUtf16(const unsigned short* text, std::size_t length) {
    const char32_t unit = text[0];
    if (isHighSurrogate(unit) && length > 1 && isLowSurrogate(text[1])) {
        return {0x10000 + ((unit & 0x3FF) << 10) + (text[1] & 0x3FFu), 2};
    }
    return isHighSurrogate(unit) || isLowSurrogate(unit) ? broken(1) : Decoded{unit, 1};
}

constexpr std::size_t utf8Length(char32_t character) {
    return character < 0x80 ? 1 : character < 0x800 ? 2 : character < 0x10000 ? 3 : 4;
}

void encodeUtf8(char32_t character, std::size_t length, char* dest) {
    constexpr unsigned char leads[] = {0, 0, 0xC0, 0xE0, 0xF0};
    for (std::size_t i = length - 1; i > 0; --i, character >>= 6) {
        dest[i] = static_cast<char>(0x80 | (character & 0x3F));
    }
    dest[0] = static_cast<char>(leads[length] | character);
}

}  // namespace

std::size_t widenUtf8(const char* text, std::size_t length, unsigned short* dest, std::size_t capacity) noexcept {
    const auto* bytes = reinterpret_cast<const unsigned char*>(text);
    std::size_t written = 0;
    for (std::size_t i = 0; i < length;) {
        const Decoded next = bytes[i] < 0x80 ? Decoded{bytes[i], 1} : decodeUtf8(bytes + i, length - i);
        i += next.taken;
        const std::size_t units = next.character < 0x10000 ? 1 : 2;
        if (capacity - written < units) return 0;
        if (units == 1) {
            dest[written] = static_cast<unsigned short>(next.character);
        } else {
            dest[written] = static_cast<unsigned short>(0xD7C0 + (next.character >> 10));
            dest[written + 1] = static_cast<unsigned short>(0xDC00 | (next.character & 0x3FF));
        }
        written += units;
    }
    return written;
}

std::size_t narrowUtf8(const unsigned short* text, std::size_t length, char* dest, std::size_t capacity) noexcept {
    std::size_t written = 0;
    for (std::size_t i = 0; i < length;) {
        const Decoded next = decodeUtf16(text + i, length - i);
        i += next.taken;
        const std::size_t bytes = utf8Length(next.character);
        if (capacity - written < bytes) return 0;
        encodeUtf8(next.character, bytes, dest + written);
        written += bytes;
    }
    return written;
}

}  // namespace KestSupport::platform
