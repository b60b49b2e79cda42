#include "text/properties/keyed_hash.h"

#include <atomic>
#include <random>

namespace KestSupport::internal {
namespace {

// One half of the key; 0 until the first caller has published it. When several threads come first, one of them wins.
std::uint64_t publishedHalf(std::atomic<std::uint64_t>& half) {
    std::uint64_t value = half.load(std::memory_order_relaxed);
    if (value != 0) return value;
    std::random_device device;
    const std::uint64_t fresh = (std::uint64_t{device()} << 32) | device() | 1U;
    return half.compare_exchange_strong(value, fresh, std::memory_order_relaxed) ? fresh : value;
}

}  // namespace

HashKey processHashKey() {
    static constinit std::atomic<std::uint64_t> first{0}, second{0};
    return {publishedHalf(first), publishedHalf(second)};
}

}  // namespace KestSupport::internal
