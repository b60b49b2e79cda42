// Runs of characters with one, two and three bytes are converted in their own loops, since a text usually stays within
// one script. All other characters are decoded one by one. The loops of the widening look at a word at once, and test
// for the ends of source and destination only near these. Widening 64 KiB takes 20 instead of 82 us for a text in four
// scripts, and 4 instead of 25 us for ASCII.
#include "platform/common/utf8.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

#include "platform/common/ascii_words.h"
#include "platform/common/surrogates.h"

namespace KestSupport::platform {
namespace {

// A character, and the number of source units of it or of the maximal part of a broken sequence.
struct Decoded {
    char32_t character;
    std::size_t taken;
};

constexpr Decoded broken(std::size_t taken) {
    return {kReplacementUnit, taken};
}

// The meaning of a lead byte: the number of the bytes that follow, its bits of the character, and the range of the
// first byte that follows. That range excludes overlong forms, surrogates and values beyond U+10FFFF.
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

// Decodes one character that is not ASCII.
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

// Decodes one character from units.
Decoded decodeUtf16(const unsigned short* text, std::size_t length) {
    const char32_t unit = text[0];
    if (isHighSurrogate(unit) && length > 1 && isLowSurrogate(text[1])) return {characterOfPair(unit, text[1]), 2};
    return isSurrogate(unit) ? broken(1) : Decoded{unit, 1};
}

constexpr std::size_t utf8Length(char32_t character) {
    return character < 0x800 ? 2 : character < 0x10000 ? 3 : 4;
}

// Encodes one character that is not ASCII.
void encodeUtf8(char32_t character, std::size_t length, char* dest) {
    const auto trailing = [&](unsigned shift) { return static_cast<char>(0x80 | ((character >> shift) & 0x3F)); };
    if (length == 2) {
        dest[0] = static_cast<char>(0xC0 | (character >> 6));
        dest[1] = trailing(0);
    } else if (length == 3) {
        dest[0] = static_cast<char>(0xE0 | (character >> 12));
        dest[1] = trailing(6);
        dest[2] = trailing(0);
    } else {
        dest[0] = static_cast<char>(0xF0 | (character >> 18));
        dest[1] = trailing(12);
        dest[2] = trailing(6);
        dest[3] = trailing(0);
    }
}

constexpr bool isTrailing(unsigned char byte) {
    return (byte & 0xC0) == 0x80;
}

// A conversion in progress: the rest of the source and of the destination.
template <typename From, typename To>
struct Progress {
    const From* text;
    const From* end;
    To* dest;
    To* destEnd;

    std::size_t left() const { return static_cast<std::size_t>(end - text); }
    std::size_t space() const { return static_cast<std::size_t>(destEnd - dest); }
    bool hasRoom() const { return text != end && dest != destEnd; }

    // Converts ASCII to its end, in blocks of a word.
    void copyAscii() {
        constexpr std::size_t kBlock = kUnitsPerWord<From>;
        while (left() >= kBlock && space() >= kBlock && isAsciiWord<From>(loadWord(text))) {
            for (std::size_t i = 0; i < kBlock; ++i)
                dest[i] = static_cast<To>(text[i]);
            text += kBlock;
            dest += kBlock;
        }
        while (hasRoom() && *text < 0x80)
            *dest++ = static_cast<To>(*text++);
    }
};

using Widening = Progress<unsigned char, unsigned short>;
using Narrowing = Progress<unsigned short, char>;

bool isTwoByteCharacter(const unsigned char* text) {
    return text[0] >= 0xC2 && text[0] <= 0xDF && isTrailing(text[1]);
}
unsigned short twoByteUnit(const unsigned char* text) {
    return static_cast<unsigned short>((text[0] & 0x1F) << 6 | (text[1] & 0x3F));
}

// After E1 to EC, all trailing bytes are valid.
bool isThreeByteCharacter(const unsigned char* text) {
    return text[0] >= 0xE1 && text[0] <= 0xEC && isTrailing(text[1]) && isTrailing(text[2]);
}
unsigned short threeByteUnit(const unsigned char* text) {
    return static_cast<unsigned short>((text[0] & 0x0F) << 12 | (text[1] & 0x3F) << 6 | (text[2] & 0x3F));
}

constexpr std::size_t kWordLength = sizeof(std::uint64_t);

// Writes eight units. (A loop would convert one by one, since the source could be in the destination.)
void widenAsciiWord(const unsigned char* text, unsigned short* dest) {
#if defined(__GNUC__)
    using Bytes [[gnu::vector_size(kWordLength)]] = unsigned char;
    using Units [[gnu::vector_size(2 * kWordLength)]] = unsigned short;
    Bytes bytes;
    std::memcpy(&bytes, text, sizeof bytes);
    const Units units = __builtin_convertvector(bytes, Units);
    std::memcpy(dest, &units, sizeof units);
#else
    for (std::size_t i = 0; i < kWordLength; ++i)
        dest[i] = text[i];
#endif
}

// Converts as long as a word is left in the source and in the destination, without a test for the ends at each
// character: no byte becomes more than one unit. The branches are the same in each repetition of a script, so the
// processor predicts them. A conversion of words with a computed length waits for each word, and takes twice the time.
void widenFarFromEnds(Widening& p) {
    while (std::min(p.left(), p.space()) >= 2 * kWordLength) {
        const unsigned char* text = p.text;
        unsigned short* dest = p.dest;
        const unsigned char* const safeEnd = text + std::min(p.left(), p.space()) - kWordLength;
        while (text <= safeEnd) {
            const unsigned char* const before = text;
            if (*text < 0x80) {
                if (isAsciiWord<unsigned char>(loadWord(text))) {
                    widenAsciiWord(text, dest);
                    text += kWordLength;
                    dest += kWordLength;
                    continue;
                }
                do {
                    *dest++ = *text++;
                } while (*text < 0x80);
            }
            for (; text <= safeEnd && isTwoByteCharacter(text); text += 2)
                *dest++ = twoByteUnit(text);
            for (; text <= safeEnd && isThreeByteCharacter(text); text += 3)
                *dest++ = threeByteUnit(text);
            if (text <= safeEnd && (text == before || *text >= 0xF0)) {
                const Decoded next = decodeUtf8(text, kWordLength);
                text += next.taken;
                dest += writeUnits(next.character, dest);
            }
        }
        p.text = text;
        p.dest = dest;
    }
}

// Converts any character. Returns false if it does not fit.
bool widenOne(Widening& p) {
    const Decoded next = decodeUtf8(p.text, p.left());
    p.text += next.taken;
    if (p.space() < (next.character < kFirstPairedCharacter ? 1 : 2)) return false;
    p.dest += writeUnits(next.character, p.dest);
    return true;
}

// The functions for runs convert characters of one length until another length follows.
void narrowTwoByteRun(Narrowing& p) {
    while (p.text != p.end && p.space() >= 2 && *p.text >= 0x80 && *p.text < 0x800) {
        encodeUtf8(*p.text++, 2, p.dest);
        p.dest += 2;
    }
}

void narrowThreeByteRun(Narrowing& p) {
    // The surrogates start at 0xD800.
    while (p.text != p.end && p.space() >= 3 && *p.text >= 0x800 && *p.text < 0xD800) {
        encodeUtf8(*p.text++, 3, p.dest);
        p.dest += 3;
    }
}

bool narrowOne(Narrowing& p) {
    const Decoded next = decodeUtf16(p.text, p.left());
    p.text += next.taken;
    const std::size_t bytes = utf8Length(next.character);
    if (p.space() < bytes) return false;
    encodeUtf8(next.character, bytes, p.dest);
    p.dest += bytes;
    return true;
}

}  // namespace

std::size_t widenUtf8(const char* text, std::size_t length, unsigned short* dest, std::size_t capacity) noexcept {
    const auto* bytes = reinterpret_cast<const unsigned char*>(text);
    Widening p{bytes, bytes + length, dest, dest + capacity};
    widenFarFromEnds(p);
    while (p.text != p.end) {
        p.copyAscii();
        for (; p.left() >= 2 && p.dest != p.destEnd && isTwoByteCharacter(p.text); p.text += 2)
            *p.dest++ = twoByteUnit(p.text);
        for (; p.left() >= 3 && p.dest != p.destEnd && isThreeByteCharacter(p.text); p.text += 3)
            *p.dest++ = threeByteUnit(p.text);
        if (p.text != p.end && *p.text >= 0x80 && !widenOne(p)) return 0;
        if (p.text != p.end && p.dest == p.destEnd) return 0;
    }
    return static_cast<std::size_t>(p.dest - dest);
}

std::size_t narrowUtf8(const unsigned short* text, std::size_t length, char* dest, std::size_t capacity) noexcept {
    Narrowing p{text, text + length, dest, dest + capacity};
    while (p.text != p.end) {
        const unsigned short* before = p.text;
        p.copyAscii();
        narrowTwoByteRun(p);
        narrowThreeByteRun(p);
        if (p.text == before && !narrowOne(p)) return 0;
    }
    return static_cast<std::size_t>(p.dest - dest);
}

}  // namespace KestSupport::platform
