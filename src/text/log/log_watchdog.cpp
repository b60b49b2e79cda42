#include "text/log/log_watchdog.h"

#include <algorithm>
#include <mutex>
#include <new>
#include <utility>

#include "platform/clock.h"
#include "platform/thread.h"
#include "platform/thread_bias.h"
#include "support/exceptions.h"
#include "support/logging.h"
#include "threads/timer_deferral.h"

namespace KestSupport {

namespace internal {

bool LogWatchdog::arm() {
    return m_armed.load(std::memory_order_relaxed) || startOnce(m_seconds);
}

bool LogWatchdog::openRecord() noexcept {
    m_openSince.store(platform::coarseCalendarSeconds(), std::memory_order_relaxed);
    std::atomic_signal_fence(std::memory_order_seq_cst);  // for the processor, the barrier of an expiry orders the two
    if (m_armed.load(std::memory_order_acquire)) return true;
    closeRecord();
    return false;
}

void LogWatchdog::set() {
    m_armed.store(false, std::memory_order_relaxed);
    platform::barrierInAllThreads();
    const std::int64_t openSince = m_openSince.load(std::memory_order_acquire);
    if (openSince == kNoRecord) return;
    const std::int64_t rest = openSince + m_seconds - platform::coarseCalendarSeconds();
    const bool isLong = rest <= 0 || openSince == m_foundOpen;
    m_foundOpen = openSince;
    if (isLong) KestTimer::set();
    startOnce(isLong ? m_seconds : std::min<std::int64_t>(rest, m_seconds));
}

bool LogWatchdog::startOnce(std::int64_t seconds) {
    constexpr std::int32_t kMillisecondsPerSecond = 1000;
    if (m_armed.exchange(true, std::memory_order_acq_rel)) return true;
    // This thread has chosen the level and module of a record. A dependent of another timer that logged here would
    // discard that choice.
    const KestTimerDeferral deferral;
    try {
        start(static_cast<std::int32_t>(seconds) * kMillisecondsPerSecond, true);
        return true;
    } catch (const KestException&) {
    } catch (const std::bad_alloc&) {
    }
    m_armed.store(false, std::memory_order_release);
    return false;
}

void LogWatchLink::startVisit(const std::shared_ptr<LogWatchLink>& link) {
    auto thread = std::make_unique<KestLoggingEventTimerThread>(link);
    // The new thread waits for this lock before it ends, so isAlive finds the object.
    const std::lock_guard guard(link->m_lock);
    if (link->isVisiting() || link->m_pLogging == nullptr) return;
    thread->setMarkForDeath();
    thread->start();
    if (!thread->isAlive()) return;
    link->m_visiting = true;
    link->m_forks = platform::forkCount();
    static_cast<void>(thread.release());
}

KestLogging* LogWatchLink::enter() {
    const std::lock_guard guard(m_lock);
    return m_pLogging;
}

void LogWatchLink::leave() {
    // Called before the logger's destructor can return, so that the exit of the process waits for this thread.
    platform::leaveThread();
    const std::lock_guard guard(m_lock);
    m_visiting = false;
    platform::setEvent(m_left.get());
}

void LogWatchLink::cut() noexcept {
    for (;;) {
        {
            const std::lock_guard guard(m_lock);
            m_pLogging = nullptr;
            if (!isVisiting() || platform::otherThreadsAreGone()) return;
        }
        constexpr std::uint32_t kLookAgain = 50;  // milliseconds; the event may not exist
        if (platform::waitForOne(m_left.get(), kLookAgain) == platform::kWaitFailed) platform::sleepThread(1);
    }
}

}  // namespace internal

namespace {

struct LeaveAtEnd {
    internal::LogWatchLink& link;
    ~LeaveAtEnd() { link.leave(); }
};

}  // namespace

KestLoggingEventTimerThread::KestLoggingEventTimerThread(std::shared_ptr<internal::LogWatchLink> link)
    : KestThread("KestLoggingEventTimerThread"), m_pLink(std::move(link)) {}

int KestLoggingEventTimerThread::run() {
    const LeaveAtEnd end{*m_pLink};
    if (KestLogging* const logging = m_pLink->enter(); logging != nullptr) logging->timerElapsed();
    return 0;
}

}  // namespace KestSupport
