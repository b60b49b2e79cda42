// A scoped guard for locks that mostly one thread takes, and often. The lock is the first thread's own: going in and
// out costs it two plain stores, no locked instruction. The first time that another thread comes, that thread takes the
// lock away from its owner, with a barrier in all threads, and from then on everybody goes through an ordinary lock.
//
//   owner:     busy = true; if (owner is still me) { ... } busy = false
//   newcomer:  owner = everybody; barrier in all threads; wait until busy is false
//
// Either the owner's second look finds the newcomer, or the newcomer finds the owner busy. What an owner that was
// terminated had begun is not waited for. Not recursive.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/thread_bias.h"
#include "support/locks.h"
#include "support/object_streams.h"

namespace KestSupport::internal {

class BiasedGuard {
  public:
    BiasedGuard(LockBias& bias, KestCriticalSectionObject& lock)
        : m_bias(bias), m_lock(lock), m_isOwn(enterAsOwner(platform::threadKey()) || enter(platform::threadKey())) {}
    BiasedGuard(const BiasedGuard&) = delete;
    BiasedGuard& operator=(const BiasedGuard&) = delete;
    ~BiasedGuard() {
        if (m_isOwn) {
            m_bias.busy.store(false, std::memory_order_release);
        } else {
            m_lock.unlock();
        }
    }

  private:
    bool enterAsOwner(std::uint32_t key) noexcept {
        if (m_bias.owner.load(std::memory_order_relaxed) != key) return false;
        m_bias.busy.store(true, std::memory_order_relaxed);
        std::atomic_signal_fence(std::memory_order_seq_cst);  // the newcomer's barrier makes it a real one
        if (m_bias.owner.load(std::memory_order_relaxed) == key) [[likely]]
            return true;
        m_bias.busy.store(false, std::memory_order_release);
        return false;
    }
    // False when the level was taken from the ordinary lock.
    bool enter(std::uint32_t key);

    LockBias& m_bias;
    KestCriticalSectionObject& m_lock;
    const bool m_isOwn;
};

}  // namespace KestSupport::internal
