// A lock in a futex word that starts as 0. The lowest two bits are its state. The other bits are the tag of the process
// that took it, so that a forked child finds a lock of its parent's threads free. The tag is 0 if a fork does not
// matter.
//
//   word             meaning                    tryLock        lock                       unlock
//   0, another tag   free                       -> tag | 1     -> tag | 1                 -
//   tag | 1          taken                      false          -> tag | 2, then sleeps    -> 0
//   tag | 2          taken, threads may sleep   false          sleeps                     -> 0, wakes one sleeper
//
// A thread that has slept takes the lock as tag | 2, since it cannot know whether others still sleep.
#pragma once

#include "platform/emulated/futex.h"
#include "platform/spin.h"

namespace KestSupport::platform {

class FutexLock {
  public:
    static constexpr std::uint32_t kTaken = 1;
    static constexpr std::uint32_t kTakenWithSleepers = 2;
    static constexpr std::uint32_t kStateBits = 3;

    /// Returns the tag of a process; `forks` is the number of forks since the library was loaded.
    static constexpr std::uint32_t tagOf(std::uint32_t forks) noexcept { return forks << 2; }

    /// May fail for a lock that another process took.
    static bool tryLock(FutexWord& word, std::uint32_t tag = 0) noexcept {
        std::uint32_t free = 0;
        return word.compare_exchange_strong(free, tag | kTaken, std::memory_order_acquire, std::memory_order_relaxed);
    }

    static void lock(FutexWord& word, std::uint32_t tag = 0) noexcept {
        if (!tryLock(word, tag)) lockSlowly(word, tag);
    }

    static void unlock(FutexWord& word) noexcept {
        const std::uint32_t before = word.exchange(0, std::memory_order_release);
        if ((before & kStateBits) == kTakenWithSleepers) futexWake(&word, 1);
    }

  private:
    // Nanoseconds: less than a sleep and a wake-up (docs/performance.md: 8 us), more than the short steps that such a
    // lock guards.
    static constexpr unsigned kSpin = 2500;

    // Not inlined, so callers save no registers for it.
    [[gnu::noinline]] static void lockSlowly(FutexWord& word, std::uint32_t tag) noexcept {
        if (!lockSpinning(word, tag)) lockSleeping(word, tag);
    }

    static bool lockSpinning(FutexWord& word, std::uint32_t tag) noexcept {
        return spinUntil(pausesFor(kSpin),
                         [&] { return word.load(std::memory_order_relaxed) == 0 && tryLock(word, tag); });
    }

    static void lockSleeping(FutexWord& word, std::uint32_t tag) noexcept {
        const std::uint32_t taken = tag | kTakenWithSleepers;
        for (std::uint32_t present = word.load(std::memory_order_relaxed);;) {
            const bool isFree = (present & kStateBits) == 0 || (present & ~kStateBits) != tag;
            if (present != taken &&
                !word.compare_exchange_weak(present, taken, std::memory_order_acquire, std::memory_order_relaxed)) {
                continue;
            }
            if (isFree) return;
            futexWait(word, taken);
            present = word.load(std::memory_order_relaxed);
        }
    }
};

}  // namespace KestSupport::platform
