#include "text/log_watchdog.h"

#include <algorithm>
#include <new>
#include <utility>

#include "support/exceptions.h"
#include "support/logging.h"
#include "threads/timer_manager.h"

namespace KestSupport {

namespace internal {

bool LogWatchdog::arm() {
    return m_armed.load(std::memory_order_relaxed) || startOnce(m_seconds);
}

bool LogWatchdog::openRecord() noexcept {
    // The calendar clock, like the timers.
    m_openSince.store(std::time(nullptr), std::memory_order_seq_cst);
    if (m_armed.load(std::memory_order_seq_cst)) return true;
    closeRecord();
    return false;
}

void LogWatchdog::set() {
    m_armed.store(false, std::memory_order_seq_cst);
    const std::time_t openSince = m_openSince.load(std::memory_order_seq_cst);
    if (openSince == noRecord) return;
    const std::time_t rest = openSince + m_seconds - std::time(nullptr);
    if (rest <= 0) KestTimer::set();
    // A clock that was set back must not put the watch off.
    startOnce(rest <= 0 ? m_seconds : std::min(rest, m_seconds));
}

bool LogWatchdog::startOnce(std::time_t seconds) {
    constexpr std::int32_t millisecondsPerSecond = 1000;
    if (m_armed.exchange(true, std::memory_order_seq_cst)) return true;
    // The thread has chosen a record's level and module; a dependent of another timer that logs would undo that.
    const KestTimerDeferral deferral;
    try {
        start(static_cast<std::int32_t>(seconds) * millisecondsPerSecond, true);
        return true;
    } catch (const KestException&) {
    } catch (const std::bad_alloc&) {
    }
    m_armed.store(false, std::memory_order_seq_cst);
    return false;
}

void LogWatchLink::startVisit(const std::shared_ptr<LogWatchLink>& link) {
    auto thread = std::make_unique<KestLoggingEventTimerThread>(link);
    // The new thread cannot get past this lock, so it is still there when it is asked whether it lives.
    const std::lock_guard guard(link->m_lock);
    thread->setMarkForDeath();
    thread->start();
    if (thread->isAlive()) static_cast<void>(thread.release());
}

KestLogging* LogWatchLink::enter() {
    const std::lock_guard guard(m_lock);
    if (m_pLogging != nullptr) ++m_visitors;
    return m_pLogging;
}

void LogWatchLink::leave() {
    const std::lock_guard guard(m_lock);
    --m_visitors;
    m_idle.notify_all();
}

void LogWatchLink::cut() {
    std::unique_lock guard(m_lock);
    m_pLogging = nullptr;
    m_idle.wait(guard, [this] { return m_visitors == 0; });
}

}  // namespace internal

KestLoggingEventTimerThread::KestLoggingEventTimerThread(std::shared_ptr<internal::LogWatchLink> link)
    : KestThread("KestLoggingEventTimerThread"), m_pLink(std::move(link)) {}

int KestLoggingEventTimerThread::run() {
    KestLogging* const logging = m_pLink->enter();
    if (logging == nullptr) return 0;
    logging->timerElapsed();
    m_pLink->leave();
    return 0;
}

}  // namespace KestSupport
