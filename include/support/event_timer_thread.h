// A thread that does periodic work: it waits for a timer and calls handleTimerEvent, which a subclass implements, after
// each firing.
//
//   class Poller : public KestEventTimerThread {
//     public:
//       explicit Poller(KestTimer& pace) : KestEventTimerThread("poller", pace) {}
//       ~Poller() override { endLoop(); }
//
//     private:
//       void handleTimerEvent() override { ... }
//   };
//
// The caller starts and stops the timer; the thread does neither. The thread handles one firing at a time. Of several
// firings during handleTimerEvent, it handles one more. An exception of handleTimerEvent ends the loop permanently,
// with the result 0.
//
// Several threads that wait for one timer share its firings: each firing wakes one of them. To end its loop, a thread
// sets the timer, and another thread may take that signal. While the ending thread is in handleTimerEvent, it sets the
// timer once. While it waits for the timer, it repeats the signal every 100 ms, without a notification.
//
// Threads: as KestThread. Another thread destroys the object, and not while the thread is suspended.
//
// Lifetime: the timer outlives the thread. The loop ends only when the object is destroyed or the thread is killed. The
// destructor of this class ends the loop, but the members of a subclass no longer exist then. So the destructor of a
// subclass calls endLoop first.
#pragma once

#include <atomic>
#include <string>

#include "support/export.h"
#include "support/threads.h"
#include "support/timers.h"

namespace KestSupport {

/// Derive from it and implement handleTimerEvent.
class KEST_SUPPORT_EXPORT KestEventTimerThread : public KestThread {
  public:
    /// Makes a thread that is not started. Keeps the timer's address.
    KestEventTimerThread(const std::string& name, KestTimer& timer);
    /// Ends the loop, unless endLoop was called before, and logs its begin and its end at level 9.
    ~KestEventTimerThread() override;

    /// As KestThread::start. With work information set, the loop does not run.
    void start() override;

  protected:
    using KestThread::run;
    /// The loop; returns 0.
    int run() override;

    /// Does the work for one firing. Called on this thread, without a lock.
    virtual void handleTimerEvent() = 0;

    /// Ends the loop: lets it wait for the timer at least once, sets the timer, and returns when the run has ended. An
    /// event that is being handled is completed first. The timer's dependents are notified once more; their exceptions
    /// are dropped. Has no effect on a thread that was not started, or when it is called again. Logs its steps at level
    /// 9.
    void endLoop();

  private:
    void wakeLoop();

    KestTimer* const m_pTimer;
    std::atomic<bool> m_cameToWait{false};  // the loop has reached its first wait
    std::atomic<bool> m_waiting{false};     // the loop waits, or is about to
    std::atomic<bool> m_active{false};      // true from start until endLoop
    std::atomic<bool> m_loopOver{false};    // the loop does not wait again
    std::atomic<bool> m_ended{false};       // endLoop was called
};

}  // namespace KestSupport
