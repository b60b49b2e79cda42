// Text in words of 64 bits: eight characters of one byte, or four units of two bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace KestSupport::platform {

template <typename Unit>
inline constexpr std::size_t kUnitsPerWord = sizeof(std::uint64_t) / sizeof(Unit);

/// Returns a word with `value` in each of its units.
template <typename Unit>
constexpr std::uint64_t wordOf(Unit value) {
    constexpr std::uint64_t kOnes = ~std::uint64_t{0} / static_cast<Unit>(-1);
    return kOnes * value;
}

template <typename Unit>
std::uint64_t loadWord(const Unit* text) {
    std::uint64_t word;
    std::memcpy(&word, text, sizeof word);
    return word;
}

template <typename Unit>
constexpr bool isAsciiWord(std::uint64_t word) {
    return (word & wordOf(static_cast<Unit>(~0x7F))) == 0;
}

/// ASCII without zeros: a zero minus 1 has all bits set. A borrow from the next unit does no harm, since only a zero
/// borrows.
template <typename Unit>
constexpr bool isPlainWord(std::uint64_t word) {
    return isAsciiWord<Unit>(word | (word - wordOf<Unit>(1)));
}

/// Calls visit with each word of the text. The last one has zeros after the last character.
template <typename Visit>
inline void visitWords(std::string_view text, Visit visit) {
    constexpr std::size_t kWord = sizeof(std::uint64_t);
    const char* next = text.data();
    std::size_t left = text.size();
    for (; left >= kWord; left -= kWord, next += kWord)
        visit(loadWord(next));
    if (left == 0) return;
    std::uint64_t word = 0;
    if (text.size() >= kWord) {
        // The last eight characters overlap the word before. The shift removes these.
        word = loadWord(next + left - kWord) >> (8 * (kWord - left));
    } else {
        while (left-- > 0)
            word = word << 8 | static_cast<unsigned char>(next[left]);
    }
    visit(word);
}

/// Returns the word with the capital letters of ASCII in lower case, and all other characters unchanged.
constexpr std::uint64_t foldedWord(std::uint64_t word) noexcept {
    constexpr auto kFirst = wordOf<unsigned char>(0x80 - 'A');
    constexpr auto kAfterLast = wordOf<unsigned char>(0x80 - ('Z' + 1));
    const std::uint64_t low = word & wordOf<unsigned char>(0x7F);
    // The highest bit of each sum says whether the character is at or after that letter. No sum overflows its byte.
    const std::uint64_t isCapital = (low + kFirst) & ~(low + kAfterLast) & ~word & wordOf<unsigned char>(0x80);
    return word | isCapital >> 2;
}

/// Returns whether the character is a control character of ASCII.
constexpr bool isAsciiControl(char c) noexcept {
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
}

/// Returns whether the whole text is ASCII.
inline bool isAscii(std::string_view text) noexcept {
    std::uint64_t all = 0;
    visitWords(text, [&all](std::uint64_t word) { all |= word; });
    return isAsciiWord<unsigned char>(all);
}

}  // namespace KestSupport::platform
