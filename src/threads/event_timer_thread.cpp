#include "support/event_timer_thread.h"

#include "platform/wait.h"
#include "text/log/internal_log.h"

namespace KestSupport {
namespace {

constexpr int kLookAgain = 100;  // milliseconds

// Signals without a notification.
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
    // Before the thread exists: its first wait may be over at once.
    m_active = true;
    KestThread::start();
}

int KestEventTimerThread::run() {
    const SetAtEnd over{m_loopOver};
    for (;;) {
        m_cameToWait = true;
        m_waiting = true;
        // The end needs no signal while the loop works. The last one may still be there, and is this loop's.
        m_pTimer->wait(m_ended ? 0 : -1);
        m_waiting = false;
        if (!m_active) return 0;
        handleTimerEvent();
    }
}

void KestEventTimerThread::endLoop() {
    if (m_ended.exchange(true)) return;
    // Before all else: from now on a firing calls nothing of a subclass that may be gone.
    const bool active = m_active.exchange(false);
    internal::logRecord(internal::LogLevel::trace, "KestEventTimerThread::~KestEventTimerThread: entering");
    if (getHandle() == nullptr || !active) return;
    internal::logRecord(internal::LogLevel::trace, "KestEventTimerThread::~KestEventTimerThread: setting exit event");
    // A run that has ended without the loop never comes to a wait.
    while (!m_cameToWait && KestThread::wait(kLookAgain) == static_cast<int>(platform::kWaitTimeout)) {
    }
    wakeLoop();
    internal::logRecord(internal::LogLevel::trace,
                        "KestEventTimerThread::~KestEventTimerThread: waiting for thread to exit");
    // Another thread that waits for this timer may have taken the signal.
    while (!m_loopOver && KestThread::wait(kLookAgain) == static_cast<int>(platform::kWaitTimeout)) {
        if (m_waiting) signalOnly(*m_pTimer);
    }
    waitForThreadExit();
}

void KestEventTimerThread::wakeLoop() {
    // The timer is signalled after its dependents were notified, so one that throws would leave the loop asleep.
    try {
        m_pTimer->set();
    } catch (...) {
        signalOnly(*m_pTimer);
    }
}

}  // namespace KestSupport
