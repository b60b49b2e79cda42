// A thread that does periodic work at the pace of a timer: it waits for the timer and, each time that fires, calls
// handleTimerEvent, which a subclass supplies.
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
// The timer is the caller's: the thread neither starts nor stops it. One firing is handled at a time; of those that
// happen during it, one is remembered. Threads that wait for one timer share its firings, and the firing that ends a
// thread is theirs, too: while that thread is in handleTimerEvent, there is one; while it waits for the timer and
// another thread takes the signal, it is repeated every 100 ms, without a notification. An exception of
// handleTimerEvent ends the loop permanently, with the result 0.
//
// Threads: as KestThread. The object is destroyed by another thread than its own, and not while it is suspended.
//
// Lifetime: the timer outlives the thread. The loop ends only when the object is destroyed (or killed). The destructor
// of this class ends it, but what a subclass adds is gone by then: so a subclass calls endLoop first thing in its own
// destructor.
#pragma once

#include <atomic>
#include <string>

#include "support/export.h"
#include "support/threads.h"
#include "support/timers.h"

namespace KestSupport {

class KEST_SUPPORT_EXPORT KestEventTimerThread : public KestThread {
  public:
    /// Not started. Keeps the timer's address.
    KestEventTimerThread(const std::string& name, KestTimer& timer);
    /// Ends the loop, unless endLoop has, and logs its begin and its end at level 9.
    ~KestEventTimerThread() override;

    /// As KestThread::start. Work information is not for this class: with it the loop does not run.
    void start() override;

  protected:
    using KestThread::run;
    /// The loop; returns 0.
    int run() override;

    /// The work for one firing, on this thread.
    virtual void handleTimerEvent() = 0;

    /// Lets the loop wait for the timer at least once, sets the timer (so that its own dependents are notified once
    /// more; what they throw is dropped) and returns when the run is over, after the event that is being handled. Does
    /// nothing for a thread that was not started, and nothing when it is called again. Logs its steps at level 9.
    void endLoop();

  private:
    void wakeLoop();

    KestTimer* const m_pTimer;
    std::atomic<bool> m_cameToWait{false};  // the loop has come to its first wait
    std::atomic<bool> m_waiting{false};     // it waits, or is about to
    std::atomic<bool> m_active{false};      // from start until the loop is to end
    std::atomic<bool> m_loopOver{false};    // the loop waits no more
    std::atomic<bool> m_ended{false};       // endLoop was called
};

}  // namespace KestSupport
