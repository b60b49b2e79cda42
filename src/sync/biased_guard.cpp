#include "sync/biased_guard.h"

#include "platform/thread.h"

namespace KestSupport::internal {
namespace {

constexpr std::uint32_t kNoThread = 0;
constexpr std::uint32_t kAllThreads = 0xFFFFFFFF;

}  // namespace

bool BiasedGuard::enter(std::uint32_t key) {
    std::uint32_t owner = kNoThread;
    if (platform::allThreadsCanBarrier() && m_bias.owner.compare_exchange_strong(owner, key) && enterAsOwner(key)) {
        return true;
    }
    m_lock.lock();
    evictOwner();
    return false;
}

// The calling thread may be terminated at any point, so the owner is noted before it is evicted and until it has left.
void BiasedGuard::evictOwner() noexcept {
    std::uint32_t owner = m_bias.owner.load();
    while (owner != kAllThreads) {
        m_bias.evicted = owner;
        if (m_bias.owner.compare_exchange_weak(owner, kAllThreads)) break;
    }
    if (m_bias.evicted == kNoThread) return;
    platform::barrierInAllThreads();
    // The owner leaves within the time of a copy, and so has mostly left, unless it is suspended or has to wait for a
    // processor.
    while (m_bias.busy.load(std::memory_order_acquire) && platform::threadMayRun(m_bias.evicted))
        platform::sleepThread(1);
    m_bias.evicted = kNoThread;
}

}  // namespace KestSupport::internal
