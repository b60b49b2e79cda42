#include "sync/biased_guard.h"

#include "platform/thread.h"

namespace KestSupport::internal {
namespace {

constexpr std::uint32_t kNoThread = 0;
constexpr std::uint32_t kAllThreads = 0xFFFFFFFF;

}  // namespace

bool BiasedGuard::enter(LockBias& bias, KestCriticalSectionObject& lock) {
    const std::uint32_t key = platform::threadKey();
    std::uint32_t owner = kNoThread;
    if (platform::allThreadsCanBarrier() && bias.owner.compare_exchange_strong(owner, key) && enterAsOwner(bias, key)) {
        return true;
    }
    lock.lock();
    evictOwner(bias);
    return false;
}

// The calling thread may be terminated at any point, so the owner is noted before it is evicted and until it has left.
void BiasedGuard::evictOwner(LockBias& bias) noexcept {
    std::uint32_t owner = bias.owner.load();
    while (owner != kAllThreads) {
        bias.evicted = owner;
        if (bias.owner.compare_exchange_weak(owner, kAllThreads)) break;
    }
    if (bias.evicted == kNoThread) return;
    platform::barrierInAllThreads();
    // The owner leaves within the time of a copy, and so has mostly left, unless it is suspended or has to wait for a
    // processor.
    while (bias.busy.load(std::memory_order_acquire) && platform::threadMayRun(bias.evicted))
        platform::sleepThread(1);
    bias.evicted = kNoThread;
}

}  // namespace KestSupport::internal
