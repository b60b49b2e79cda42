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

/// Returns whether the whole text is ASCII. Reads it to its end, many bytes at a time.
inline bool isAscii(std::string_view text) noexcept {
    unsigned all = 0;
    for (const char c : text)
        all |= static_cast<unsigned char>(c);
    return all < 0x80;
}

}  // namespace KestSupport::platform
