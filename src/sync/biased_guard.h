// A scoped guard for locks that one thread takes often and other threads rarely. The lock first belongs to the thread
// that takes it first: entering and leaving costs that owner two plain stores and no locked instruction. The first
// other thread evicts the owner, with one barrier in all threads; from then on every thread takes an ordinary lock.
//
//   owner:     busy = true; if (owner is still this thread) { ... } busy = false
//   newcomer:  owner = all threads; barrier in all threads; wait until busy is false
//
// Either the owner sees that it was evicted, or the newcomer sees that the owner is busy. The newcomer does not wait
// for an owner that was terminated. If the newcomer itself is terminated, the next thread repeats its wait.
//
// The gain: 5.3 instead of 12.5 ns for a value written to a buffer stream, 7.3 instead of 12.4 ns for one read
// (bench/object_streams).
//
// The guard is not recursive.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/thread_bias.h"
#include "support/locks.h"

namespace KestSupport::internal {

class BiasedGuard {
  public:
    BiasedGuard(LockBias& bias, KestCriticalSectionObject& lock)
        : m_bias(bias), m_lock(lock), m_isOwner(enterAsOwner(platform::threadKey()) || enter(platform::threadKey())) {}
    BiasedGuard(const BiasedGuard&) = delete;
    BiasedGuard& operator=(const BiasedGuard&) = delete;
    /// Whether the calling thread is the owner, for which no other thread waits but an evicting one.
    bool isOwner() const noexcept { return m_isOwner; }
    ~BiasedGuard() {
        if (m_isOwner) {
            m_bias.busy.store(false, std::memory_order_release);
        } else {
            m_lock.unlock();
        }
    }

  private:
    bool enterAsOwner(std::uint32_t key) noexcept {
        if (m_bias.owner.load(std::memory_order_relaxed) != key) return false;
        m_bias.busy.store(true, std::memory_order_relaxed);
        std::atomic_signal_fence(
            std::memory_order_seq_cst);  // for the processor, the newcomer's barrier orders the two
        if (m_bias.owner.load(std::memory_order_relaxed) == key) [[likely]]
            return true;
        m_bias.busy.store(false, std::memory_order_release);
        return false;
    }
    // Returns true when the calling thread has become the owner, and false when it has taken the ordinary lock.
    bool enter(std::uint32_t key);
    void evictOwner() noexcept;

    LockBias& m_bias;
    KestCriticalSectionObject& m_lock;
    const bool m_isOwner;
};

}  // namespace KestSupport::internal
