#include "text/properties/keyed_hash.h"

#include <random>

namespace KestSupport::internal {
namespace {

// Of several first callers, one publishes.
void publish(std::atomic<std::uint64_t>& half) {
    std::random_device device;
    const std::uint64_t fresh = (std::uint64_t{device()} << 32) | device() | 1U;
    std::uint64_t absent = 0;
    half.compare_exchange_strong(absent, fresh, std::memory_order_relaxed);
}

}  // namespace

void publishHashKey() {
    publish(firstHalfOfKey);
    publish(secondHalfOfKey);
}

}  // namespace KestSupport::internal
