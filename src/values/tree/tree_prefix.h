// Prefixes of keys: eight bytes of a key as a number, so that most comparisons of keys compare numbers. The eight bytes
// follow a text with which most keys of a list begin. A key that begins differently has the least or the greatest
// number. If two numbers are equal, the whole keys decide.
//
//   text   "agent."     key "agent.port"   the number of "port" and four zeros
//                       key "abc"          0
//                       key "timer"        the greatest number
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

namespace KestSupport::internal {

inline constexpr std::size_t kPrefixWidth = sizeof(std::uint64_t);

// Returns eight bytes as a number with the same order. Compilers turn this into a single load.
inline std::uint64_t numberOf(const char* bytes) noexcept {
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < kPrefixWidth; ++i)
        number = number << 8 | static_cast<unsigned char>(bytes[i]);
    return number;
}

inline std::uint64_t shortNumberOf(const std::string& key, std::size_t start) noexcept {
    std::uint64_t number = 0;
    for (std::size_t i = start; i < start + kPrefixWidth; ++i)
        number = number << 8 | (i < key.size() ? static_cast<unsigned char>(key[i]) : 0U);
    return number;
}

// Returns the number of the eight bytes from `start` on, which is at most the length of the key. Missing bytes are
// zeros.
inline std::uint64_t numberOf(const std::string& key, std::size_t start) noexcept {
    const char* const bytes = key.data();
    const std::size_t length = key.size() - start;
    if (length >= kPrefixWidth) return numberOf(bytes + start);
    if (length == 0 || key.size() < kPrefixWidth) return shortNumberOf(key, start);
    return numberOf(bytes + key.size() - kPrefixWidth) << (8 * (kPrefixWidth - length));
}

// Returns the prefix of the key, where `common` is the text of the list.
inline std::uint64_t prefixOf(const std::string& key, const std::string& common) noexcept {
    const int side = key.compare(0, common.size(), common);
    if (side != 0) return side < 0 ? 0 : ~std::uint64_t{0};
    return numberOf(key, common.size());
}

// Returns the length of the beginning that the texts have in common, up to `most`.
inline std::size_t commonLength(const std::string& a, const std::string& b, std::size_t most) noexcept {
    const auto end = a.begin() + static_cast<std::ptrdiff_t>(std::min(most, a.size()));
    return static_cast<std::size_t>(std::mismatch(a.begin(), end, b.begin(), b.end()).first - a.begin());
}

}  // namespace KestSupport::internal
