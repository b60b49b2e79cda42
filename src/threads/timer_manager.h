// What drives all timers of the process: the list of the active ones, and one short-lived thread that waits for the
// earliest. Internal; programs use KestTimer.
//
//   KestTimerManager    the list, the dispatch passes, the waiting thread's commands
//   KestTimerThread     waits until the earliest timer is due, runs a pass, and ends
//   KestTimerDeferral   keeps a thread from firing timers while it holds a lock that firing may need
//
// The waiting thread is woken only when the earliest timer becomes earlier than what it waits for. When the earliest
// becomes later, or is removed, the thread still waits, finds on waking that nothing is due, and waits for the rest: so
// starting and stopping a timer costs no thread. A pass claims itself under the list lock, and a thread that finds a
// pass under way leaves the rest to it. No thread ever waits for another thread's pass but in stop, for the one timer
// that the pass fires.
//
// While there are active timers, some thread of the library serves them: one that waits, or one that runs a pass. start
// ensures that before it returns, and before it fires anything on its own thread; where no thread can be made, it
// fails. So a pass on a caller's thread never ends without a waiting thread, and a timer thread that cannot make the
// next one after its pass waits itself.
//
// A wait lasts kLongestWait at most: then the thread looks whether the calendar was set forward, or the system slept.
//
// In a forked child the waiting thread is gone, and a pass on another thread is found abandoned. The next operation on
// any timer makes a thread that serves all of them.
//
// Lifetime: the manager is made on first use and deleted at the library's unload, after which there is none. The locks
// outlive it. The operations are static, since a manager may be deleted while a thread is on its way into one: each
// looks for the manager under the list lock, and does nothing when it is gone.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/wait.h"
#include "support/locks.h"
#include "support/threads.h"
#include "support/timers.h"
#include "threads/timer_queue.h"

namespace KestSupport {

class KestTimerThread;

class KestTimerManager {
  public:
    /// The manager, made when there is none yet. Throws KestException "KestTimerManager::getInstance: Exiting system",
    /// code 0, after deleteInstance.
    static KestTimerManager* getInstance();
    /// Deletes the manager permanently, wakes the waiting thread and returns when the timers' threads are leaving
    /// (leaveThread). A firing under way on one of them gets 100 ms to end; a thread that does not get the processor
    /// for 5 seconds is left behind.
    static void deleteInstance();

    KestTimerManager(const KestTimerManager&) = delete;
    KestTimerManager& operator=(const KestTimerManager&) = delete;
    virtual ~KestTimerManager();

    /// Puts the timer into the list, due its interval from now, in place of where it may be already. This, like the
    /// next three, may fire timers on the calling thread. Throws what KestTimer::start throws when no thread can be
    /// made; the timer then keeps the setting and is not in the list.
    static void addTimer(KestTimer& timer, const internal::TimerSetting& setting);
    static void removeTimer(KestTimer& timer);
    static void removeTimer(KestTimer& timer, const internal::TimerSetting& setting);
    /// Ensures that the earliest timer will fire; at once, on the calling thread, when it is due.
    static void reschedule();
    /// Fires what is due, on the calling thread, unless a pass is under way. `timerThread` is the calling thread if it
    /// is one of the timers'; it waits next when it cannot make a thread that does.
    static void dispatch(KestTimerThread* timerThread = nullptr);
    /// Dismisses the waiting thread, until the next reschedule.
    static void cancelWait();
    /// Returns when no other thread is firing the timer; whether one was.
    static bool waitWhileFiring(const KestTimer& timer);

  private:
    friend class KestTimerThread;
    struct Process;
    enum class Order { leave, wait, dispatch };

    KestTimerManager();

    static Process& process();
    static void awaitThreads(Process& process) noexcept;
    static bool recoverPass(Process& process) noexcept;
    static Order nextOrder(const KestTimerThread& thread, std::uint32_t& milliseconds);
    static bool isWaiting(const KestTimerThread& thread);
    static void resetInForkedChild() noexcept;
    template <typename Change>
    static void update(Change&& change);

    bool isCurrent() const noexcept { return m_pInstance.load(std::memory_order_relaxed) == this; }
    void insertTimer(KestTimer& timer);
    void remove(KestTimer& timer);
    bool scheduleOrDue(std::int64_t now);
    void scheduleFor(const internal::TimerEntry* first);
    bool isServed();
    void waitNext(KestTimerThread* timerThread) noexcept;
    bool startThread();
    void dismissThread() noexcept;
    void observeClocks() noexcept;
    std::int64_t restOfWait(std::int64_t now, std::int64_t calendar) const noexcept;
    bool isPassUnderWay();
    void rearm(KestTimer& timer);
    static void runPass(KestTimerManager& manager, KestCriticalSection& guard, KestTimerThread* timerThread);
    void fireDue(KestCriticalSection& guard, KestTimerThread* timerThread);
    void lockAgain(KestCriticalSection& guard);
    bool fire(KestTimer& timer, KestCriticalSection& guard);

    static std::atomic<KestTimerManager*> m_pInstance;  // written under the list lock
    static std::atomic<bool> m_exiting;                 // likewise
    static const bool m_isTold;                         // resetInForkedChild is registered

    // All guarded by the list lock.
    internal::TimerQueue m_timers;
    KestTimerThread* m_pWaiting = nullptr;  // the thread that waits, or is about to
    std::int64_t m_waitsUntil = 0;          // steady time at which it looks again
    bool m_dispatching = false;             // a pass is under way
};

/// Deletes itself when its run is over; lives for one wait, unless no other thread can be made.
class KestTimerThread : public KestThread {
  public:
    KestTimerThread();
    KestTimerThread(const KestTimerThread&) = delete;
    KestTimerThread& operator=(const KestTimerThread&) = delete;
    ~KestTimerThread() override;

    bool canWait() const noexcept { return m_wakeEvent != nullptr; }
    /// Makes the thread look again at what it waits for.
    void wake() noexcept { platform::setEvent(m_wakeEvent.get()); }

  protected:
    using KestThread::run;
    int run() override;

  private:
    bool waitForExpiry();

    const platform::OwnedHandle m_wakeEvent;
};

/// While one of these lives, starting, resetting and stopping timers on its thread fires none there; a timer thread
/// does it. For code that does so under a lock that a dependent of some timer may take.
class KestTimerDeferral {
  public:
    KestTimerDeferral() noexcept { ++depth(); }
    KestTimerDeferral(const KestTimerDeferral&) = delete;
    KestTimerDeferral& operator=(const KestTimerDeferral&) = delete;
    ~KestTimerDeferral() { --depth(); }

    static bool isActive() noexcept { return depth() > 0; }

  private:
    static int& depth() noexcept;
};

}  // namespace KestSupport
