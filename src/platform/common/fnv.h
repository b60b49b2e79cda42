// FNV-1a, a fast hash for bytes that no attacker chooses.
#pragma once

#include <cstdint>
#include <string_view>
#include <type_traits>

namespace KestSupport::platform {

/// Returns the hash of the bytes, in 32 or 64 bits.
template <typename Hash>
constexpr Hash fnv1a(std::string_view bytes) noexcept {
    static_assert(std::is_same_v<Hash, std::uint32_t> || std::is_same_v<Hash, std::uint64_t>);
    constexpr bool kIsWide = sizeof(Hash) == sizeof(std::uint64_t);
    auto hash = static_cast<Hash>(kIsWide ? 14695981039346656037U : 2166136261U);
    for (const char each : bytes)
        hash = (hash ^ static_cast<unsigned char>(each)) * static_cast<Hash>(kIsWide ? 1099511628211U : 16777619U);
    return hash;
}

}  // namespace KestSupport::platform
