#include "text/properties/keyed_hash.h"

#include <atomic>
#include <random>

namespace KestSupport::internal {
namespace {

// Returns one half of the key. It is 0 until the first caller publishes it. Of several first callers, one publishes.
std::uint64_t publishedHalf(std::atomic<std::uint64_t>& half) {
    std::uint64_t value = half.load(std::memory_order_relaxed);
    if (value != 0) return value;
    std::random_device device;
    const std::uint64_t fresh = (std::uint64_t{device()} << 32) | device() | 1U;
    return half.compare_exchange_strong(value, fresh, std::memory_order_relaxed) ? fresh : value;
}

}  // namespace

HashKey processHashKey() {
    static constinit std::atomic<std::uint64_t> firstHalf{0};
    static constinit std::atomic<std::uint64_t> secondHalf{0};
    return {publishedHalf(firstHalf), publishedHalf(secondHalf)};
}

}  // namespace KestSupport::internal
