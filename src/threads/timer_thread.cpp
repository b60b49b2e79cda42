#include "threads/timer_thread.h"

#include <algorithm>

#include "platform/clock.h"
#include "platform/deadline.h"
#include "platform/thread.h"
#include "platform/wait.h"
#include "threads/timer_shared.h"

namespace KestSupport {

using internal::kNanoseconds;
using internal::kNanosecondsPerMillisecond;
using internal::TimerEntry;

namespace {

constexpr std::int64_t kLongestWait = 5 * kNanoseconds;
constexpr std::uint32_t kFiringMayTake = 100;  // milliseconds, at the exit of the process
constexpr std::uint32_t kLeaveWithin = 5000;   // milliseconds, at the exit of the process

static_assert(kLongestWait <= internal::TimerQueue::kLongestRest * kNanoseconds);

}  // namespace

KestTimerThread::KestTimerThread() : m_wakeEvent(platform::createEvent(false, false)) {
    ++KestTimerManager::shared().m_timerThreads;
}

// The run has called leaveThread before it deletes the object.
KestTimerThread::~KestTimerThread() {
    KestTimerManager::Shared& shared = KestTimerManager::shared();
    --shared.m_timerThreads;
    platform::setEvent(shared.m_threadLeft.get());
}

int KestTimerThread::run() {
    t_isCurrent = true;
    do {
        if (!waitForExpiry()) return 0;
        KestTimerManager::dispatch(this);
    } while (KestTimerManager::isWaiting(*this));
    return 0;
}

bool KestTimerThread::waitForExpiry() {
    for (;;) {
        std::uint32_t milliseconds = 0;
        const KestTimerManager::Order order = KestTimerManager::nextOrder(*this, milliseconds);
        if (order != KestTimerManager::Order::wait) return order == KestTimerManager::Order::dispatch;
        platform::waitForOne(m_wakeEvent.get(), milliseconds);
    }
}

KestTimerManager::Order KestTimerManager::nextOrder(const KestTimerThread& thread, std::uint32_t& milliseconds) {
    const KestCriticalSection guard(shared().m_listLock, true);
    KestTimerManager* const manager = m_pInstance;
    if (manager == nullptr || manager->m_pWaiting != &thread) return Order::leave;
    const std::int64_t now = platform::steadyTime();
    const std::int64_t calendar = platform::calendarTime();
    manager->m_timers.observe(now, calendar);
    // A pass on another thread may end without being able to make a thread for the next wait, so this one stays.
    const bool passUnderWay = manager->isPassUnderWay();
    const bool isIdle = !passUnderWay && manager->m_timers.empty();
    const std::int64_t rest = passUnderWay ? kLongestWait : isIdle ? 0 : manager->restOfWait(now, calendar);
    if (rest <= 0) {
        manager->m_pWaiting = nullptr;
        return isIdle ? Order::leave : Order::dispatch;
    }
    manager->m_waitsUntil = now + rest;
    milliseconds = static_cast<std::uint32_t>((rest + kNanosecondsPerMillisecond - 1) / kNanosecondsPerMillisecond);
    return Order::wait;
}

// Nanoseconds until the first timer may be due. A pass finds it due in its calendar second, and never earlier. Its
// interval ends at most one second, its milliseconds and a tick of the coarse clock after the begin of that second;
// a deadline that is later than that means that the calendar was set forward.
std::int64_t KestTimerManager::restOfWait(std::int64_t now, std::int64_t calendar) const noexcept {
    const TimerEntry* const first = m_timers.first();
    if (first == nullptr) return kLongestWait;
    const std::int64_t toSecond = first->expirySeconds * kNanoseconds - calendar;
    const std::int64_t latest = toSecond + kNanoseconds + platform::kCoarseLag +
                                std::max(first->expiryMilliseconds, 0) * kNanosecondsPerMillisecond;
    return std::min({kLongestWait, latest, std::max(first->deadline - now, toSecond)});
}

bool KestTimerManager::isWaiting(const KestTimerThread& thread) {
    const KestCriticalSection guard(shared().m_listLock, true);
    KestTimerManager* const manager = m_pInstance;
    return manager != nullptr && manager->m_pWaiting == &thread;
}

// A firing may take any time, and it may be the caller.
void KestTimerManager::awaitThreads(Shared& shared) noexcept {
    if (platform::otherThreadsAreGone()) return;
    const platform::Deadline endOfFiring = platform::Deadline::after(kFiringMayTake);
    const platform::Deadline giveUp = platform::Deadline::after(kLeaveWithin);
    const int own = KestTimerThread::isCurrent() ? 1 : 0;
    for (;;) {
        const int threads = shared.m_timerThreads;
        const platform::Deadline& deadline = threads == shared.m_firingTimerThreads ? endOfFiring : giveUp;
        if (threads == own || deadline.hasPassed()) return;
        const std::uint32_t pause = std::min(deadline.rest(), internal::kFiringCheck);
        if (platform::waitForOne(shared.m_threadLeft.get(), pause) == platform::kWaitFailed) platform::sleepThread(1);
    }
}

}  // namespace KestSupport
