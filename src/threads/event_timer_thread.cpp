#include "support/event_timer_thread.h"

#include "platform/wait.h"
#include "text/log/internal_log.h"

namespace KestSupport {
namespace {

constexpr int kRepeatAfter = 100;  // milliseconds

// Releases a waiter without a notification.
void signalOnly(KestTimer& timer) {
    const auto* const handle = static_cast<platform::WaitHandle*>(timer.getHandle());
    if (handle != nullptr) platform::setEvent(*handle);
}

struct SetAtEnd {
    std::atomic<bool>& flag;
    ~SetAtEnd() { flag = true; }
};

}  // namespace

KestEventTimerThread::KestEventTimerThread(const std::string& name, KestTimer& timer)
    : KestThread(name), m_pTimer(&timer) {}

KestEventTimerThread::~KestEventTimerThread() {
    endLoop();
    internal::logRecord(internal::LogLevel::trace, "KestEventTimerThread::~KestEventTimerThread: exiting");
}

void KestEventTimerThread::start() {
    // What the run of a killed thread has left.
    if (getHandle() == nullptr) m_cameToWait = m_waiting = m_loopOver = false;
    // Set before the thread exists, since its first wait may end at once.
    m_active = true;
    KestThread::start();
}

int KestEventTimerThread::run() {
    const SetAtEnd over{m_loopOver};
    for (;;) {
        m_cameToWait = true;
        m_waiting = true;
        // After endLoop there may be no further signal, so the loop only takes the one that may still be set.
        m_pTimer->wait(m_ended ? 0 : -1);
        m_waiting = false;
        if (!m_active) return 0;
        handleTimerEvent();
    }
}

void KestEventTimerThread::endLoop() {
    if (m_ended.exchange(true)) return;
    // Cleared first: after this, a firing calls no member of a subclass that may be destroyed already.
    const bool active = m_active.exchange(false);
    internal::logRecord(internal::LogLevel::trace, "KestEventTimerThread::~KestEventTimerThread: entering");
    if (getHandle() == nullptr || !active) return;
    internal::logRecord(internal::LogLevel::trace, "KestEventTimerThread::~KestEventTimerThread: setting exit event");
    // A run that has ended without the loop never reaches a wait.
    while (!m_cameToWait && KestThread::wait(kRepeatAfter) == static_cast<int>(platform::kWaitTimeout)) {
    }
    wakeLoop();
    internal::logRecord(internal::LogLevel::trace,
                        "KestEventTimerThread::~KestEventTimerThread: waiting for thread to exit");
    // Another thread that waits for this timer may have taken the signal.
    while (!m_loopOver && KestThread::wait(kRepeatAfter) == static_cast<int>(platform::kWaitTimeout)) {
        if (m_waiting) signalOnly(*m_pTimer);
    }
    waitForThreadExit();
}

void KestEventTimerThread::wakeLoop() {
    // A set signals the timer after it has notified the dependents, so one that throws prevents the signal.
    try {
        m_pTimer->set();
    } catch (...) {
        signalOnly(*m_pTimer);
    }
}

}  // namespace KestSupport
