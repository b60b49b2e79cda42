#include "sync/biased_guard.h"

#include "platform/thread.h"

namespace KestSupport::internal {

bool BiasedGuard::enter(std::uint32_t key) {
    constexpr std::uint32_t kNobody = 0;
    constexpr std::uint32_t kEverybody = 0xFFFFFFFF;
    std::uint32_t owner = kNobody;
    if (platform::allThreadsCanBarrier() && m_bias.owner.compare_exchange_strong(owner, key) && enterAsOwner(key)) {
        return true;
    }
    m_lock.lock();
    owner = m_bias.owner.exchange(kEverybody);
    if (owner == kNobody || owner == kEverybody) return false;
    platform::barrierInAllThreads();
    // What the owner does inside takes no longer than a copy, unless it is suspended.
    constexpr int kLooks = 1000;
    for (int looks = 0; m_bias.busy.load(std::memory_order_acquire) && platform::threadMayRun(owner); ++looks) {
        if (looks >= kLooks) platform::sleepThread(1);
    }
    return false;
}

}  // namespace KestSupport::internal
