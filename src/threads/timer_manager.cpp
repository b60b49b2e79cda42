#include "threads/timer_manager.h"

#include <algorithm>
#include <memory>
#include <new>

#include "platform/clock.h"
#include "platform/deadline.h"
#include "platform/fork.h"
#include "platform/process_memory.h"
#include "platform/thread.h"
#include "platform/thread_bias.h"
#include "support/exceptions.h"

namespace KestSupport {

using internal::TimerEntry;

// What outlives the manager. Lock order: the pass lock is only ever tried, under the list lock; while timers fire, the
// pass lock is held and the list lock is not.
struct KestTimerManager::Process {
    KestCriticalSectionObject m_listLock;

    // Held by the thread of a pass, whole; found abandoned when that thread was killed. Null is no protection.
    const platform::OwnedHandle m_passLock{platform::createMutex()};
    // Manual reset: set when a firing has ended.
    const platform::OwnedHandle m_fired{platform::createEvent(true, false)};

    // Guarded by the list lock.
    std::uint32_t m_passThread = 0;  // the thread of the pass, 0 for none
    KestTimer* m_pFiring = nullptr;  // the timer that it is firing, null for none
    bool m_rearm = false;            // that timer goes back into the list if it is periodic

    std::atomic<int> m_liveThreads{0};    // the timers' threads
    std::atomic<int> m_firingThreads{0};  // those of them that are in a dependent or an override
    // Set when a timer thread leaves.
    const platform::OwnedHandle m_threadLeft{platform::createEvent(false, false)};
};

namespace {

constexpr std::int64_t kNanoseconds = 1'000'000'000;
constexpr std::int64_t kNanosecondsPerMillisecond = 1'000'000;
constexpr std::int64_t kLongestWait = 5 * kNanoseconds;
constexpr std::int64_t kCoarseFrom = 10 * kNanoseconds;  // intervals from here on use the coarse clock
constexpr std::int64_t kNotYet = 0;                      // a new thread looks without being woken
constexpr std::uint32_t kFiringCheck = 50;     // milliseconds between looks whether a firing thread still lives
constexpr std::uint32_t kFiringMayTake = 100;  // milliseconds, at the end of the process
constexpr std::uint32_t kLeaveWithin = 5000;

static_assert(kLongestWait <= internal::TimerQueue::kLongestRest * kNanoseconds);

constinit thread_local bool t_isTimerThread = false;

std::int64_t intervalOf(const internal::TimerSetting& setting) noexcept {
    return setting.seconds * kNanoseconds + setting.milliseconds * kNanosecondsPerMillisecond;
}

// The calendar's second in which the timer is due. With negative milliseconds the interval may be over before the
// second that its seconds lead to.
std::int64_t expiryOf(const internal::TimerSetting& setting) noexcept {
    const std::int64_t expiry = platform::coarseCalendarSeconds() + setting.seconds;
    if (setting.milliseconds >= 0) return expiry;
    return std::min(expiry, (platform::calendarTime() + intervalOf(setting)) / kNanoseconds);
}

// The steady time at which an interval from now is over; never before it is.
std::int64_t deadlineAfter(std::int64_t interval) noexcept {
    if (interval < kCoarseFrom) return platform::steadyTime() + interval;
    return platform::coarseSteadyTime() + platform::kCoarseLag + interval;
}

bool isDue(const TimerEntry& entry, std::int64_t now) noexcept {
    return entry.expirySeconds < now || (entry.expirySeconds == now && entry.expiryMilliseconds == 0);
}

// Counts the calling thread while it runs foreign code, if it is one of the timers' threads.
class CountedFiring {
  public:
    explicit CountedFiring(std::atomic<int>& count) noexcept : m_count(count), m_one(t_isTimerThread ? 1 : 0) {
        m_count += m_one;
    }
    CountedFiring(const CountedFiring&) = delete;
    CountedFiring& operator=(const CountedFiring&) = delete;
    ~CountedFiring() { m_count -= m_one; }

  private:
    std::atomic<int>& m_count;
    const int m_one;
};

// Runs foreign code, whose exceptions no caller can handle.
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

std::atomic<KestTimerManager*> KestTimerManager::m_pInstance{nullptr};
std::atomic<bool> KestTimerManager::m_exiting{false};

KestTimerManager::Process& KestTimerManager::process() {
    static constinit platform::ProcessObject<Process> process;
    return process.get();
}

KestTimerManager* KestTimerManager::getInstance() {
    if (KestTimerManager* const instance = m_pInstance.load(std::memory_order_acquire)) return instance;
    const KestCriticalSection guard(process().m_listLock, true);
    if (m_exiting) throw KestException("KestTimerManager::getInstance: Exiting system", 0);
    if (m_pInstance == nullptr) m_pInstance = new KestTimerManager;
    return m_pInstance;
}

void KestTimerManager::deleteInstance() {
    Process& shared = process();
    {
        const KestCriticalSection guard(shared.m_listLock, true);
        if (m_exiting.exchange(true)) return;
        KestTimerManager* const manager = m_pInstance.exchange(nullptr);
        if (manager != nullptr) {
            manager->dismissThread();
            if (!manager->isPassUnderWay()) delete manager;  // the pass deletes it otherwise
        }
    }
    awaitThreads(shared);
}

// A firing may last for any time, and it may be the caller.
void KestTimerManager::awaitThreads(Process& shared) noexcept {
    const platform::Deadline endOfFiring = platform::Deadline::after(kFiringMayTake);
    const platform::Deadline giveUp = platform::Deadline::after(kLeaveWithin);
    const int own = t_isTimerThread ? 1 : 0;
    for (;;) {
        const int live = shared.m_liveThreads;
        const platform::Deadline& deadline = live == shared.m_firingThreads ? endOfFiring : giveUp;
        if (live == own || deadline.hasPassed()) return;
        const std::uint32_t pause = std::min(deadline.rest(), kFiringCheck);
        if (platform::waitForOne(shared.m_threadLeft.get(), pause) == platform::kWaitFailed) platform::sleepThread(1);
    }
}

KestTimerManager::KestTimerManager() : m_timers(platform::coarseCalendarSeconds()) {}

KestTimerManager::~KestTimerManager() = default;

template <typename Change>
void KestTimerManager::update(Change&& change) {
    KestCriticalSection guard(process().m_listLock, true);
    KestTimerManager* const manager = m_pInstance.load(std::memory_order_relaxed);
    if (manager == nullptr) return;
    const std::int64_t now = platform::coarseCalendarSeconds();
    manager->m_timers.settle(now);
    change(*manager);
    // The pass begins before another thread gets the lock, so that what is due fires before the caller returns.
    if (manager->scheduleOrDue(now)) runPass(*manager, guard, nullptr);
}

void KestTimerManager::addTimer(KestTimer& timer, const internal::TimerSetting& setting) {
    bool served = true;
    update([&](KestTimerManager& manager) {
        timer.m_setting.store(setting, std::memory_order_release);
        manager.remove(timer);
        served = manager.isServed();
        if (served) manager.insertTimer(timer);
    });
    if (!served) throw KestException("KestTimer::start: Cannot create a thread that fires timers", 0);
}

void KestTimerManager::removeTimer(KestTimer& timer) {
    update([&](KestTimerManager& manager) { manager.remove(timer); });
}

void KestTimerManager::removeTimer(KestTimer& timer, const internal::TimerSetting& setting) {
    update([&](KestTimerManager& manager) {
        timer.m_setting.store(setting, std::memory_order_release);
        manager.remove(timer);
    });
}

void KestTimerManager::reschedule() {
    update([](KestTimerManager&) {});
}

void KestTimerManager::cancelWait() {
    const KestCriticalSection guard(process().m_listLock, true);
    if (KestTimerManager* const manager = m_pInstance) manager->dismissThread();
}

void KestTimerManager::dismissThread() noexcept {
    if (m_pWaiting != nullptr) m_pWaiting->wake();
    m_pWaiting = nullptr;
}

void KestTimerManager::insertTimer(KestTimer& timer) {
    const internal::TimerSetting setting = timer.m_setting.load(std::memory_order_relaxed);
    TimerEntry& entry = timer.m_entry;
    entry.expirySeconds = expiryOf(setting);
    entry.expiryMilliseconds = setting.milliseconds;
    entry.deadline = deadlineAfter(intervalOf(setting));
    timer.m_registered.store(true, std::memory_order_release);
    m_timers.insert(entry);
}

void KestTimerManager::remove(KestTimer& timer) {
    Process& shared = process();
    m_timers.remove(timer.m_entry);
    const bool firing = shared.m_pFiring == &timer;
    if (firing) shared.m_rearm = false;
    timer.m_registered.store(firing, std::memory_order_release);
}

// True when the caller has to run a pass.
bool KestTimerManager::scheduleOrDue(std::int64_t now) {
    if (isPassUnderWay() || m_timers.empty()) return false;
    m_timers.settle(now);
    const TimerEntry* const first = m_timers.first();
    const bool due = first != nullptr && isDue(*first, now) && !KestTimerDeferral::isActive();
    if (!due || m_pWaiting == nullptr) scheduleFor(first);
    return due;
}

void KestTimerManager::scheduleFor(const TimerEntry* first) {
    if (m_pWaiting == nullptr) {
        startThread();
        return;
    }
    if (first == nullptr || first->deadline >= m_waitsUntil) return;
    m_waitsUntil = first->deadline;
    m_pWaiting->wake();
}

// Whether a timer that is put into the list now will fire.
bool KestTimerManager::isServed() {
    return isPassUnderWay() || m_pWaiting != nullptr || startThread();
}

// The new thread needs the list lock before all else, so it still exists when we look whether it was made.
bool KestTimerManager::startThread() {
    try {
        auto thread = std::make_unique<KestTimerThread>();
        if (!thread->canWait()) return false;
        thread->setMarkForDeath();
        thread->start();
        if (!thread->isAlive()) return false;
        m_waitsUntil = kNotYet;
        m_pWaiting = thread.release();
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

// Clears up after a pass whose thread was killed.
bool KestTimerManager::isPassUnderWay() {
    m_timers.mend();
    if (!m_dispatching) return false;
    Process& shared = process();
    KestTimer* const interrupted = shared.m_pFiring;
    if (!recoverPass(shared)) return true;
    m_timers.endPass();
    m_dispatching = false;
    if (interrupted != nullptr && shared.m_rearm && !interrupted->m_setting.load().oneShot) rearm(*interrupted);
    return false;
}

void KestTimerManager::rearm(KestTimer& timer) {
    process().m_rearm = false;
    if (!m_timers.contains(timer.m_entry)) insertTimer(timer);
}

// True when the thread of the pass under way was killed; nothing is firing then.
bool KestTimerManager::recoverPass(Process& shared) noexcept {
    if (shared.m_passThread == platform::lifelongThreadKey()) return false;
    const std::uint32_t taken = platform::waitForOne(shared.m_passLock.get(), 0);
    if (taken != platform::kWaitObject0 && taken != platform::kWaitAbandoned) return false;
    shared.m_passThread = 0;
    shared.m_pFiring = nullptr;
    platform::releaseMutex(shared.m_passLock.get());
    return true;
}

void KestTimerManager::dispatch(KestTimerThread* timerThread) {
    KestCriticalSection guard(process().m_listLock, true);
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

// The steady clock is read first, as the list asks for.
void KestTimerManager::observeClocks() noexcept {
    const std::int64_t steady = platform::steadyTime();
    m_timers.observe(steady, platform::calendarTime());
}

void KestTimerManager::fireDue(KestCriticalSection& guard, KestTimerThread* timerThread) {
    Process& shared = process();
    platform::waitForOne(shared.m_passLock.get(), 0);
    shared.m_passThread = platform::lifelongThreadKey();
    m_dispatching = true;
    m_timers.beginPass();
    for (bool goOn = true; goOn;) {
        TimerEntry* const entry = m_timers.takeDue(platform::calendarTime() / kNanoseconds);
        goOn = entry != nullptr && fire(*entry->owner, guard);
    }
    const bool isThere = isCurrent();  // when not, timers may be destroyed without leaving our list
    if (isThere) m_timers.endPass();
    m_dispatching = false;
    shared.m_passThread = 0;
    platform::releaseMutex(shared.m_passLock.get());
    if (!isThere || m_timers.empty()) return;
    scheduleFor(m_timers.first());
    waitNext(timerThread);
}

// Makes the calling thread the waiting one, if it may be and there is none.
void KestTimerManager::waitNext(KestTimerThread* timerThread) noexcept {
    if (m_pWaiting != nullptr || timerThread == nullptr) return;
    m_waitsUntil = kNotYet;
    m_pWaiting = timerThread;
}

// A thread that had the list lock since then may have been killed inside a change.
void KestTimerManager::lockAgain(KestCriticalSection& guard) {
    guard.lock();
    m_timers.mend();
}

// Called and left with the list lock held. False when the manager is gone.
bool KestTimerManager::fire(KestTimer& timer, KestCriticalSection& guard) {
    Process& shared = process();
    shared.m_pFiring = &timer;
    shared.m_rearm = true;
    guard.unlock();
    const bool oneShot = guarded(shared.m_firingThreads, true, [&timer] { return timer.isOneShot(); });
    lockAgain(guard);
    if (isCurrent() && !oneShot && shared.m_rearm) rearm(timer);
    shared.m_rearm = false;
    guard.unlock();
    guarded(shared.m_firingThreads, false, [&timer] {
        timer.set();
        return true;
    });
    lockAgain(guard);
    if (!m_timers.contains(timer.m_entry)) timer.m_registered.store(false, std::memory_order_release);
    shared.m_pFiring = nullptr;
    platform::setEvent(shared.m_fired.get());
    return isCurrent();
}

bool KestTimerManager::waitWhileFiring(const KestTimer& timer) {
    Process& shared = process();
    KestCriticalSection guard(shared.m_listLock, true);
    bool waited = false;
    while (shared.m_pFiring == &timer && shared.m_passThread != platform::lifelongThreadKey()) {
        waited = true;
        if (recoverPass(shared)) break;
        platform::resetEvent(shared.m_fired.get());
        guard.unlock();
        platform::waitForOne(shared.m_fired.get(), kFiringCheck);
        guard.lock();
    }
    return waited;
}

KestTimerManager::Order KestTimerManager::nextOrder(const KestTimerThread& thread, std::uint32_t& milliseconds) {
    const KestCriticalSection guard(process().m_listLock, true);
    KestTimerManager* const manager = m_pInstance;
    if (manager == nullptr || manager->m_pWaiting != &thread) return Order::leave;
    const std::int64_t now = platform::steadyTime(), calendar = platform::calendarTime();
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

std::int64_t KestTimerManager::restOfWait(std::int64_t now, std::int64_t calendar) const noexcept {
    const TimerEntry* const first = m_timers.first();
    if (first == nullptr) return kLongestWait;
    const std::int64_t toSecond = first->expirySeconds * kNanoseconds - calendar;
    // Its interval is over at the latest a second and its milliseconds after the begin of its second; a tick more,
    // since the clocks that it was started by are coarse. When it is later, the calendar was set forward.
    const std::int64_t latest = toSecond + kNanoseconds + platform::kCoarseLag +
                                std::max(first->expiryMilliseconds, 0) * kNanosecondsPerMillisecond;
    // Before its second begins a pass finds nothing due.
    return std::min({kLongestWait, latest, std::max(first->deadline - now, toSecond)});
}

bool KestTimerManager::isWaiting(const KestTimerThread& thread) {
    const KestCriticalSection guard(process().m_listLock, true);
    KestTimerManager* const manager = m_pInstance;
    return manager != nullptr && manager->m_pWaiting == &thread;
}

void KestTimerManager::resetInForkedChild() noexcept {
    KestTimerManager* const manager = m_pInstance;
    if (manager == nullptr) return;
    manager->m_pWaiting = nullptr;  // its object stays, like all that the parent's threads had
    process().m_liveThreads = t_isTimerThread ? 1 : 0;
    process().m_firingThreads = t_isTimerThread ? 1 : 0;
}

const bool KestTimerManager::m_isTold = [] {
    platform::onForkInChild(&KestTimerManager::resetInForkedChild);
    return true;
}();

namespace {

// A program that is linked with the static library may have no Module object, which does this otherwise.
struct DeleteAtExit {
    ~DeleteAtExit() { KestTimerManager::deleteInstance(); }
};
constinit DeleteAtExit g_deleteAtExit;

}  // namespace

KestTimerThread::KestTimerThread() : m_wakeEvent(platform::createEvent(false, false)) {
    ++KestTimerManager::process().m_liveThreads;
}

KestTimerThread::~KestTimerThread() {
    KestTimerManager::Process& shared = KestTimerManager::process();
    --shared.m_liveThreads;
    platform::setEvent(shared.m_threadLeft.get());
}

int KestTimerThread::run() {
    t_isTimerThread = true;
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

int& KestTimerDeferral::depth() noexcept {
    thread_local int depth = 0;
    return depth;
}

}  // namespace KestSupport
