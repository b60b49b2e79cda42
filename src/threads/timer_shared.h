// The part of the timers' state that outlives the manager: its locks, and the pass that may still run.
//
// Lock order: the pass lock is only tried, under the list lock. While a timer fires, its thread holds the pass lock and
// not the list lock.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/wait.h"
#include "support/locks.h"
#include "support/timers.h"
#include "threads/timer_manager.h"

namespace KestSupport {

struct KestTimerManager::Shared {
    KestCriticalSectionObject m_listLock;

    // A thread holds this for its whole pass. It is found abandoned when that thread was killed. When it cannot be
    // made (null), the pass of a killed thread is never recovered.
    const platform::OwnedHandle m_passLock{platform::createLock()};
    // Manual reset: set when a firing has ended.
    const platform::OwnedHandle m_fired{platform::createEvent(true, false)};
    // Set when a timer thread leaves.
    const platform::OwnedHandle m_threadLeft{platform::createEvent(false, false)};

    // Guarded by the list lock.
    std::uint32_t m_passThread = 0;  // the thread of the pass, 0 for none
    KestTimer* m_pFiring = nullptr;  // the timer that it fires, null for none
    bool m_rearm = false;            // that timer has not fired yet, and was not started or stopped since

    std::atomic<int> m_timerThreads{0};
    std::atomic<int> m_firingTimerThreads{0};  // those of them that run a dependent or an override
};

namespace internal {

constexpr std::int64_t kNanoseconds = 1'000'000'000;
constexpr std::int64_t kNanosecondsPerMillisecond = 1'000'000;
constexpr std::uint32_t kFiringCheck = 50;  // milliseconds between looks whether a firing thread still lives

}  // namespace internal
}  // namespace KestSupport
