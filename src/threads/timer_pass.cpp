// A pass: one thread takes each due timer from the list and fires it without the list lock.
//
//   step              m_pFiring   m_rearm  in the list        a killed thread leaves
//   takeNext          the timer   true     no                 as below: the thread is killed before or after the step
//   ask isOneShot     the timer   true     no                 the timer, which isPassUnderWay inserts again, still due
//   insert again      the timer   true     if it is periodic  the same; the next owner of the lock repairs the list
//   set               the timer   false    if it is periodic  waiters of that firing without a signal
//   end               null        false    as before          nothing
//
// A stop, start or reset of the timer during the first step clears m_rearm, and has the last word.
#include <atomic>

#include "platform/clock.h"
#include "platform/thread_bias.h"
#include "platform/uninterrupted.h"
#include "platform/wait.h"
#include "threads/timer_manager.h"
#include "threads/timer_shared.h"
#include "threads/timer_thread.h"

namespace KestSupport {

using internal::kNanoseconds;
using internal::TimerEntry;

namespace {

// Counts the calling thread, if it is a timer thread, while it runs foreign code.
class CountedFiring {
  public:
    explicit CountedFiring(std::atomic<int>& count) noexcept
        : m_count(count), m_one(KestTimerThread::isCurrent() ? 1 : 0) {
        m_count += m_one;
    }
    CountedFiring(const CountedFiring&) = delete;
    CountedFiring& operator=(const CountedFiring&) = delete;
    ~CountedFiring() { m_count -= m_one; }

  private:
    std::atomic<int>& m_count;
    const int m_one;
};

// Runs foreign code and drops its exceptions: no caller can handle them. Returns `otherwise` then.
template <typename Result, typename Call>
Result guarded(std::atomic<int>& firingThreads, Result otherwise, Call&& call) noexcept {
    const CountedFiring counted(firingThreads);
    try {
        return call();
    } catch (...) {
        return otherwise;
    }
}

}  // namespace

void KestTimerManager::dispatch(KestTimerThread* timerThread) {
    KestCriticalSection guard(shared().m_listLock, true);
    KestTimerManager* const manager = m_pInstance;
    if (manager == nullptr) return;
    if (manager->isPassUnderWay()) return manager->waitNext(timerThread);
    runPass(*manager, guard, timerThread);
}

void KestTimerManager::runPass(KestTimerManager& manager, KestCriticalSection& guard, KestTimerThread* timerThread) {
    manager.observeClocks();
    manager.fireDue(guard, timerThread);
    if (!manager.isCurrent()) delete &manager;
}

// The list requires that the steady clock is read first.
void KestTimerManager::observeClocks() noexcept {
    const std::int64_t steady = platform::steadyTime();
    m_timers.observe(steady, platform::calendarTime());
}

void KestTimerManager::fireDue(KestCriticalSection& guard, KestTimerThread* timerThread) {
    Shared& state = shared();
    platform::waitForOne(state.m_passLock.get(), 0);
    state.m_passThread = platform::lifelongThreadKey();
    m_dispatching = true;
    m_timers.beginPass();
    for (bool more = true; more;) {
        KestTimer* const timer = takeNext();
        more = timer != nullptr && fire(*timer, guard);
    }
    // Without a current manager, timers that are destroyed do not leave the list, so it is not touched.
    const bool exists = isCurrent();
    if (exists) m_timers.endPass();
    m_dispatching = false;
    state.m_passThread = 0;
    platform::releaseMutex(state.m_passLock.get());
    if (!exists || m_timers.empty()) return;
    scheduleFor(m_timers.first());
    waitNext(timerThread);
}

// Takes the next due timer from the list, to be fired. Returns null for none.
KestTimer* KestTimerManager::takeNext() {
    // A timer that is neither in the list nor being fired would be lost.
    const platform::Uninterrupted whole;
    TimerEntry* const entry = m_timers.takeDue(platform::calendarTime() / kNanoseconds);
    if (entry == nullptr) return nullptr;
    Shared& state = shared();
    state.m_pFiring = entry->owner;
    state.m_rearm = true;
    return entry->owner;
}

// Makes the calling thread the waiting one, if it is a timer thread and no thread waits.
void KestTimerManager::waitNext(KestTimerThread* timerThread) noexcept {
    if (m_pWaiting != nullptr || timerThread == nullptr) return;
    m_waitsUntil = 0;
    m_pWaiting = timerThread;
}

// A thread that had the list lock in between may have been killed inside a change.
void KestTimerManager::lockAgain(KestCriticalSection& guard) {
    guard.lock();
    m_timers.recover();
}

// False when the manager is gone. The list lock is held before and after.
bool KestTimerManager::fire(KestTimer& timer, KestCriticalSection& guard) {
    Shared& state = shared();
    guard.unlock();
    const bool oneShot = guarded(state.m_firingTimerThreads, true, [&timer] { return timer.isOneShot(); });
    lockAgain(guard);
    if (isCurrent() && !oneShot && state.m_rearm && !m_timers.contains(timer.m_entry)) insertTimer(timer);
    state.m_rearm = false;
    guard.unlock();
    guarded(state.m_firingTimerThreads, false, [&timer] {
        timer.set();
        return true;
    });
    lockAgain(guard);
    if (!m_timers.contains(timer.m_entry)) timer.m_registered.store(false, std::memory_order_release);
    state.m_pFiring = nullptr;
    platform::setEvent(state.m_fired.get());
    return isCurrent();
}

// Finishes a pass whose thread was killed, and returns false. The timer that it was about to fire fires in the next
// pass.
bool KestTimerManager::isPassAlive() {
    Shared& state = shared();
    if (!takeDeadPass(state)) return true;
    const platform::Uninterrupted whole;
    KestTimer* const interrupted = state.m_pFiring;
    endDeadPass(state);
    m_timers.endPass();
    m_dispatching = false;
    if (interrupted != nullptr && state.m_rearm && !m_timers.contains(interrupted->m_entry)) {
        m_timers.insert(interrupted->m_entry);
    }
    return false;
}

// Takes the pass lock of a killed thread, and returns false if the thread of the pass lives. If the calling thread is
// killed after this, the next owner of the list lock finds the same.
bool KestTimerManager::takeDeadPass(Shared& shared) noexcept {
    if (shared.m_passThread == platform::lifelongThreadKey()) return false;
    const std::uint32_t taken = platform::waitForOne(shared.m_passLock.get(), 0);
    return taken == platform::kWaitObject0 || taken == platform::kWaitAbandoned;
}

// No timer fires after this.
void KestTimerManager::endDeadPass(Shared& shared) noexcept {
    shared.m_passThread = 0;
    shared.m_pFiring = nullptr;
    platform::releaseMutex(shared.m_passLock.get());
}

// Returns false if the thread of the pass lives. The manager keeps the timer that the killed thread was about to fire.
bool KestTimerManager::endsDeadPass(Shared& shared) {
    if (KestTimerManager* const manager = m_pInstance) return !manager->isPassUnderWay();
    if (!takeDeadPass(shared)) return false;
    endDeadPass(shared);
    return true;
}

bool KestTimerManager::waitWhileFiring(const KestTimer& timer) {
    Shared& state = shared();
    KestCriticalSection guard(state.m_listLock, true);
    bool waited = false;
    while (state.m_pFiring == &timer && state.m_passThread != platform::lifelongThreadKey()) {
        waited = true;
        if (endsDeadPass(state)) break;
        platform::resetEvent(state.m_fired.get());
        guard.unlock();
        platform::waitForOne(state.m_fired.get(), internal::kFiringCheck);
        guard.lock();
    }
    return waited;
}

}  // namespace KestSupport
