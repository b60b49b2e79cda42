#include "threads/timer_manager.h"

#include <algorithm>
#include <memory>
#include <new>

#include "platform/clock.h"
#include "platform/fork.h"
#include "platform/process_memory.h"
#include "platform/thread.h"
#include "support/exceptions.h"
#include "threads/timer_deferral.h"
#include "threads/timer_shared.h"
#include "threads/timer_thread.h"

namespace KestSupport {

using internal::kNanoseconds;
using internal::TimerEntry;

namespace {

// Intervals from here on use the coarse clock, and its lag is added to them. A read takes 11 instead of 43 ns.
constexpr std::int64_t kCoarseFrom = 10 * kNanoseconds;

std::int64_t intervalOf(const internal::TimerSetting& setting) noexcept {
    return setting.seconds * kNanoseconds + setting.milliseconds * internal::kNanosecondsPerMillisecond;
}

// The calendar second in which the timer is due. With negative milliseconds the interval may end before the second to
// which its seconds lead.
std::int64_t expiryOf(const internal::TimerSetting& setting) noexcept {
    const std::int64_t expiry = platform::coarseCalendarSeconds() + setting.seconds;
    if (setting.milliseconds >= 0) return expiry;
    return std::min(expiry, (platform::calendarTime() + intervalOf(setting)) / kNanoseconds);
}

// The steady time at which an interval from now ends, or a little later.
std::int64_t deadlineAfter(std::int64_t interval) noexcept {
    if (interval < kCoarseFrom) return platform::steadyTime() + interval;
    return platform::coarseSteadyTime() + platform::kCoarseLag + interval;
}

bool isDue(const TimerEntry& entry, std::int64_t now) noexcept {
    return entry.expirySeconds < now || (entry.expirySeconds == now && entry.expiryMilliseconds == 0);
}

// A program that is linked with the static library may have no Module object, which does this otherwise.
struct DeleteAtExit {
    ~DeleteAtExit() { KestTimerManager::deleteInstance(); }
};
constinit DeleteAtExit g_deleteAtExit;

}  // namespace

std::atomic<KestTimerManager*> KestTimerManager::m_pInstance{nullptr};
std::atomic<bool> KestTimerManager::m_exiting{false};

const bool KestTimerManager::m_resetsInForkedChild = [] {
    platform::onForkInChild(&KestTimerManager::resetInForkedChild);
    return true;
}();

KestTimerManager::Shared& KestTimerManager::shared() {
    static constinit platform::ProcessObject<Shared> shared;
    return shared.get();
}

KestTimerManager* KestTimerManager::getInstance() {
    if (KestTimerManager* const instance = m_pInstance.load(std::memory_order_acquire)) return instance;
    platform::prepareForThreads();
    const KestCriticalSection guard(shared().m_listLock, true);
    if (m_exiting) throw KestException("KestTimerManager::getInstance: Exiting system", 0);
    if (m_pInstance == nullptr) m_pInstance = new KestTimerManager;
    return m_pInstance;
}

void KestTimerManager::deleteInstance() {
    Shared& state = shared();
    {
        const KestCriticalSection guard(state.m_listLock, true);
        if (m_exiting.exchange(true)) return;
        KestTimerManager* const manager = m_pInstance.exchange(nullptr);
        if (manager != nullptr) {
            manager->dismissThread();
            if (!manager->isPassUnderWay()) delete manager;  // otherwise the pass deletes it
        }
    }
    awaitThreads(state);
}

KestTimerManager::KestTimerManager() : m_timers(platform::coarseCalendarSeconds()) {}

KestTimerManager::~KestTimerManager() = default;

void KestTimerManager::resetInForkedChild() noexcept {
    KestTimerManager* const manager = m_pInstance;
    if (manager == nullptr) return;
    manager->m_pWaiting = nullptr;  // its object is never freed, like all that the parent's threads had
    const int threads = KestTimerThread::isCurrent() ? 1 : 0;
    shared().m_timerThreads = threads;
    shared().m_firingTimerThreads = threads;
}

template <typename Change>
void KestTimerManager::update(Change&& change) {
    KestCriticalSection guard(shared().m_listLock, true);
    KestTimerManager* const manager = m_pInstance.load(std::memory_order_relaxed);
    if (manager == nullptr) return;
    const std::int64_t now = platform::coarseCalendarSeconds();
    manager->m_timers.settle(now);
    change(*manager);
    // The pass begins before another thread gets the lock, so that the due timers fire before the caller returns.
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
    const KestCriticalSection guard(shared().m_listLock, true);
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
    Shared& state = shared();
    m_timers.remove(timer.m_entry);
    const bool firing = state.m_pFiring == &timer;
    if (firing) state.m_rearm = false;
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

// The new thread takes the list lock before anything else, so its object still exists when isAlive is asked.
bool KestTimerManager::startThread() {
    try {
        auto thread = std::make_unique<KestTimerThread>();
        if (!thread->canWait()) return false;
        thread->setMarkForDeath();
        thread->start();
        if (!thread->isAlive()) return false;
        m_waitsUntil = 0;  // it looks without being woken
        m_pWaiting = thread.release();
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

}  // namespace KestSupport
