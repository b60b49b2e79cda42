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
        : m_bias(bias), m_lock(lock), m_isOwner(enterAsOwner(bias, platform::threadKey()) || enter(bias, lock)) {}
    BiasedGuard(const BiasedGuard&) = delete;
    BiasedGuard& operator=(const BiasedGuard&) = delete;
    /// Whether the calling thread is the owner, for which no other thread waits but an evicting one.
    bool isOwner() const noexcept { return m_isOwner; }
    ~BiasedGuard() {
        if (m_isOwner) [[likely]] {
            m_bias.busy.store(false, std::memory_order_release);
        } else {
            m_lock.unlock();
        }
    }

  private:
    // These are static, so that a guard can be in registers.
    static bool enterAsOwner(LockBias& bias, std::uint32_t key) noexcept {
        if (bias.owner.load(std::memory_order_relaxed) != key) [[unlikely]]
            return false;
        bias.busy.store(true, std::memory_order_relaxed);
        std::atomic_signal_fence(
            std::memory_order_seq_cst);  // for the processor, the newcomer's barrier orders the two
        if (bias.owner.load(std::memory_order_relaxed) == key) [[likely]]
            return true;
        bias.busy.store(false, std::memory_order_release);
        return false;
    }
    // Returns true when the calling thread has become the owner, and false when it has taken the ordinary lock.
    static bool enter(LockBias& bias, KestCriticalSectionObject& lock);
    static void evictOwner(LockBias& bias) noexcept;

    LockBias& m_bias;
    KestCriticalSectionObject& m_lock;
    const bool m_isOwner;
};

}  // namespace KestSupport::internal
