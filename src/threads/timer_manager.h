// The manager of all timers of the process: the list of the active ones, and one thread that waits for the earliest.
// Internal; programs use KestTimer.
//
//   timer_manager.cpp   the list: adding, removing, and whether a thread waits
//   timer_pass.cpp      a pass: takes the due timers from the list and fires them
//   timer_thread.cpp    the waiting thread, and what it does next
//   timer_queue.h       the order of the list
//   timer_shared.h      what outlives the manager
//
// A timer fires in a pass. A timer thread runs passes, and so does a thread that starts, resets or stops a timer while
// some timer is due. One pass runs at a time; a thread that finds a pass under way leaves the due timers to it. No
// thread waits for another thread's pass. Only stop waits, for the one timer that the pass fires.
//
// The waiting thread is woken only when the earliest timer becomes earlier than the time that the thread waits for.
// When the earliest is stopped, the thread waits on, finds nothing due, and waits for the rest. So a start and a stop
// wake no thread: 41 ns for both, with 1 or 100,000 other timers (bench/timers).
//
// While there are active timers, some thread of the library serves them: it waits, or it runs a pass. start ensures
// that before it returns, and before it fires anything on its own thread. Where no thread can be made, start fails. So
// a pass on a caller's thread never ends without a waiting thread. A timer thread that cannot make the next one after
// its pass waits itself.
//
// A wait lasts kLongestWait at most. Then the thread looks whether the calendar was set forward, or the system slept.
//
// In a forked child there is no waiting thread, and a pass of another thread is found abandoned. The next operation on
// any timer makes a thread that serves all of them.
//
// Lifetime: the manager is made on first use and deleted at the exit of the process or the unload of the library. The
// locks outlive it. The operations are static, since a manager may be deleted while a thread is about to enter one:
// each looks for the manager under the list lock, and does nothing when there is none.
#pragma once

#include <atomic>
#include <cstdint>

#include "support/locks.h"
#include "support/timers.h"
#include "threads/timer_queue.h"

namespace KestSupport {

class KestTimerThread;

class KestTimerManager {
  public:
    /// The manager, made when there is none yet. Throws KestException "KestTimerManager::getInstance: Exiting system",
    /// code 0, after deleteInstance.
    static KestTimerManager* getInstance();
    /// Deletes the manager permanently, wakes the waiting thread, and returns when the timers' threads are leaving
    /// (leaveThread). It waits at most 100 ms for a firing on one of them, and at most 5 seconds for a thread that does
    /// not get the processor.
    static void deleteInstance();

    KestTimerManager(const KestTimerManager&) = delete;
    KestTimerManager& operator=(const KestTimerManager&) = delete;
    virtual ~KestTimerManager();

    /// Puts the timer into the list, due its interval from now; a timer that is in the list changes its place. This
    /// function and the next three may fire timers on the calling thread. Throws what KestTimer::start throws when no
    /// thread can be made; the timer then keeps the setting and is not in the list.
    static void addTimer(KestTimer& timer, const internal::TimerSetting& setting);
    static void removeTimer(KestTimer& timer);
    static void removeTimer(KestTimer& timer, const internal::TimerSetting& setting);
    /// Ensures that the earliest timer will fire; at once, on the calling thread, when it is due.
    static void reschedule();
    /// Fires the due timers on the calling thread, unless a pass is under way. `timerThread` is the calling thread if
    /// it is a timer thread, else null; it waits next when it cannot make another thread for that.
    static void dispatch(KestTimerThread* timerThread = nullptr);
    /// Dismisses the waiting thread, until the next reschedule.
    static void cancelWait();
    /// Returns when no other thread fires the timer; true when one did.
    static bool waitWhileFiring(const KestTimer& timer);

  private:
    friend class KestTimerThread;
    struct Shared;
    enum class Order { leave, wait, dispatch };

    KestTimerManager();

    static Shared& shared();
    static void awaitThreads(Shared& shared) noexcept;
    static bool takeDeadPass(Shared& shared) noexcept;
    static void endDeadPass(Shared& shared) noexcept;
    static bool endsDeadPass(Shared& shared);
    static Order nextOrder(const KestTimerThread& thread, std::uint32_t& milliseconds);
    static bool isWaiting(const KestTimerThread& thread);
    static void resetInForkedChild() noexcept;
    template <typename Change>
    static void update(Change&& change);

    // All called with the list lock held.
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
    // Inline, since there rarely is one: a start and a stop take 43 instead of 46 ns (bench/timers).
    bool isPassUnderWay() {
        m_timers.recover();
        return m_dispatching && isPassAlive();
    }
    bool isPassAlive();
    KestTimer* takeNext();
    static void runPass(KestTimerManager& manager, KestCriticalSection& guard, KestTimerThread* timerThread);
    void fireDue(KestCriticalSection& guard, KestTimerThread* timerThread);
    void lockAgain(KestCriticalSection& guard);
    bool fire(KestTimer& timer, KestCriticalSection& guard);

    static std::atomic<KestTimerManager*> m_pInstance;  // written under the list lock
    static std::atomic<bool> m_exiting;                 // written under the list lock
    static const bool m_resetsInForkedChild;            // resetInForkedChild is registered

    // Guarded by the list lock.
    internal::TimerQueue m_timers;
    KestTimerThread* m_pWaiting = nullptr;  // the thread that waits, or is about to
    std::int64_t m_waitsUntil = 0;          // the steady time at which it looks again
    bool m_dispatching = false;             // a pass is under way
};

}  // namespace KestSupport
