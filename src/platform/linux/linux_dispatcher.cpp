// The dispatcher: queues of waiting threads, and whom a signal satisfies.
#include <utility>

#include "platform/linux/linux_barrier.h"
#include "platform/linux/linux_wait_object.h"

namespace KestSupport::platform {
namespace {

using Kind = WaitObject::Kind;

// The dispatcher lock. It is held for a few list operations at a time, so a short spin nearly always suffices.
enum LockState : std::uint32_t { kFree, kTaken, kTakenWithSleepers };
constinit FutexWord g_lock{kFree};
constinit Waiter* g_firstWaiter = nullptr;  // guarded by g_lock

void lockDispatcher() noexcept {
    std::uint32_t state = kFree;
    if (g_lock.compare_exchange_strong(state, kTaken, std::memory_order_acquire, std::memory_order_relaxed)) return;
    for (int spins = spinningPays() ? 100 : 0; spins > 0; --spins) {
        state = kFree;
        if (g_lock.compare_exchange_weak(state, kTaken, std::memory_order_acquire, std::memory_order_relaxed)) return;
        spinPause();
    }
    while (g_lock.exchange(kTakenWithSleepers, std::memory_order_acquire) != kFree) {
        futexWait(g_lock, kTakenWithSleepers);
    }
}

void unlockDispatcher() noexcept {
    if (g_lock.exchange(kFree, std::memory_order_release) == kTakenWithSleepers) futexWake(&g_lock, 1);
}

// Keeps the fast paths of an object out until the end of the scope; a freeze may stand inside another.
class Freeze {
  public:
    explicit Freeze(WaitObject* object) noexcept {
        if (object == nullptr) return;
        const std::uint32_t before = object->word.fetch_or(WaitObject::kFrozen, std::memory_order_acquire);
        if ((before & WaitObject::kFrozen) == 0) m_object = object;
    }
    Freeze(const Freeze&) = delete;
    Freeze& operator=(const Freeze&) = delete;
    ~Freeze() {
        if (m_object != nullptr) m_object->word.fetch_and(~WaitObject::kFrozen, std::memory_order_release);
    }

  private:
    WaitObject* m_object = nullptr;
};

// The next place in an object's queue that belongs to another wait; one wait may name an object twice.
Link* nextWait(const Link& link) noexcept {
    Link* next = link.next;
    while (next != nullptr && next->waiter == link.waiter)
        next = next->next;
    return next;
}

// Takes a mutex for the thread with the id; false when another thread has it. abandoned tells whether its owner is
// gone.
bool takeMutex(WaitObject& mutex, std::uint32_t id, bool& abandoned) noexcept {
    std::uint32_t owner = mutex.owner.load(std::memory_order_acquire);
    if (owner == id) {
        mutex.addLevels(1);
        return true;
    }
    while (owner == WaitObject::kNobody) {
        if (mutex.owner.compare_exchange_weak(owner, id, std::memory_order_acquire, std::memory_order_acquire)) {
            return true;
        }
    }
    // Neither a reserved mutex nor one of an ended thread can change in other hands than ours.
    const bool ownerGone = owner != WaitObject::kReserved && !isAttached(owner);
    if (owner != WaitObject::kReserved && !ownerGone) return false;
    abandoned = abandoned || ownerGone || mutex.abandoned;
    mutex.abandoned = false;
    mutex.innerLevels.store(0, std::memory_order_relaxed);
    mutex.owner.store(id, std::memory_order_relaxed);
    return true;
}

// Keeps an object from being consumed by others until it is let go, and tells whether the thread with the id could have
// it. held is what letGo needs.
bool holdOn(WaitObject& object, std::uint32_t id, bool& held) noexcept {
    if (object.kind != Kind::mutex) {
        const std::uint32_t before = object.word.fetch_or(WaitObject::kFrozen, std::memory_order_acquire);
        held = (before & WaitObject::kFrozen) == 0;
        if (object.isTimer()) refreshTimer(object);
        if (object.kind == Kind::thread) refreshThread(static_cast<ThreadObject&>(object));
        return (object.word.load(std::memory_order_acquire) & WaitObject::kSignalled) != 0;
    }
    std::uint32_t owner = WaitObject::kNobody;
    held = object.owner.compare_exchange_strong(owner, WaitObject::kReserved, std::memory_order_acquire,
                                                std::memory_order_acquire);
    return held || owner == id || owner == WaitObject::kReserved || !isAttached(owner);
}

void letGo(WaitObject& object) noexcept {
    if (object.kind != Kind::mutex) {
        object.word.fetch_and(~WaitObject::kFrozen, std::memory_order_release);
        return;
    }
    std::uint32_t owner = WaitObject::kReserved;
    object.owner.compare_exchange_strong(owner, WaitObject::kNobody, std::memory_order_release,
                                         std::memory_order_relaxed);
}

bool consumeOne(WaitObject& object, std::uint32_t id, bool& abandoned) noexcept {
    if (object.kind == Kind::mutex) return takeMutex(object, id, abandoned);
    if (object.isTimer()) refreshTimer(object);
    if (object.kind == Kind::thread) refreshThread(static_cast<ThreadObject&>(object));
    if (!object.resetsItself()) return (object.word.load(std::memory_order_acquire) & WaitObject::kSignalled) != 0;
    // A thread on the fast path may be first.
    const std::uint32_t before = object.word.fetch_and(~WaitObject::kSignalled, std::memory_order_acq_rel);
    return (before & WaitObject::kSignalled) != 0;
}

bool consumeAll(Waiter& waiter, bool& abandoned) noexcept {
    const std::uint32_t id = waiter.thread->id;
    std::array<bool, kMaximumWaitObjects> held{};
    bool available = true;
    std::size_t looked = 0;
    for (; looked < waiter.count && available; ++looked) {
        available = holdOn(*waiter.links[looked].object, id, held[looked]);
    }
    for (std::size_t i = 0; i < looked; ++i) {
        WaitObject& object = *waiter.links[i].object;
        if (available) consumeOne(object, id, abandoned);
        if (held[i]) letGo(object);
    }
    return available;
}

}  // namespace

constinit ContendedMutexes g_contended;
constinit std::uint32_t g_forks = 0;

void refreshTimer(WaitObject& timer) noexcept {
    if (timer.due.isNever()) return;
    const Deadline::Time now = Deadline::now();
    if (!timer.due.hasPassed(now)) return;
    timer.word.fetch_or(WaitObject::kSignalled, std::memory_order_relaxed);
    // Periods that nobody waited for fall together into this one.
    const Deadline::Time due = timer.due.time();
    timer.due =
        timer.period == 0 ? Deadline::never() : Deadline::at(due + ((now - due) / timer.period + 1) * timer.period);
}

void ContendedMutexes::setHead(std::size_t chain, WaitObject* mutex) noexcept {
    const bool several = mutex != nullptr && mutex->nextContended != nullptr;
    m_heads[chain].store(reinterpret_cast<std::uintptr_t>(mutex) | (several ? kSeveral : 0), std::memory_order_relaxed);
}

void ContendedMutexes::link(WaitObject& mutex) noexcept {
    const std::size_t chain = chainOf(&mutex);
    mutex.previousContended = nullptr;
    mutex.nextContended = first(chain);
    if (mutex.nextContended != nullptr) mutex.nextContended->previousContended = &mutex;
    setHead(chain, &mutex);
    ++m_count;
}

void ContendedMutexes::unlink(WaitObject& mutex) noexcept {
    if (mutex.nextContended != nullptr) mutex.nextContended->previousContended = mutex.previousContended;
    if (mutex.previousContended != nullptr) mutex.previousContended->nextContended = mutex.nextContended;
    const std::size_t chain = chainOf(&mutex);
    setHead(chain, mutex.previousContended == nullptr ? mutex.nextContended : first(chain));
    --m_count;
}

WaitObject* ContendedMutexes::find(const WaitObject* address) noexcept {
    WaitObject* mutex = first(chainOf(address));
    while (mutex != nullptr && mutex != address)
        mutex = mutex->nextContended;
    return mutex;
}

Dispatcher::Dispatcher(ThreadRecord& self) noexcept : m_self(self), m_region(self) {
    m_self.inDispatcher = true;
    std::atomic_signal_fence(std::memory_order_seq_cst);
    lockDispatcher();
}

Dispatcher::~Dispatcher() {
    unlockDispatcher();
    std::atomic_signal_fence(std::memory_order_seq_cst);
    m_self.inDispatcher = false;
    for (std::size_t i = 0; i < m_wakeCount; ++i)
        futexWake(m_toWake[i], 1);
}

void Dispatcher::wake(ThreadRecord& thread) noexcept {
    // From here on the thread may return from its wait and end; only the word's address is used afterwards.
    FutexWord* const word = &thread.parked;
    if (word->exchange(kParkWoken, std::memory_order_release) != kParkAsleep) return;
    if (m_wakeCount == m_toWake.size()) {
        futexWake(word, 1);
    } else {
        m_toWake[m_wakeCount++] = word;
    }
}

void Dispatcher::enqueue(Waiter& waiter, bool front) noexcept {
    bool newContention = false, hasMutex = false;
    for (std::size_t i = 0; i < waiter.count; ++i) {
        Link& link = waiter.links[i];
        WaitObject& object = *link.object;
        link.waiter = &waiter;
        hasMutex = hasMutex || object.kind == Kind::mutex;
        if (object.first == nullptr) {
            if (object.kind == Kind::mutex) {
                g_contended.link(object);
                newContention = true;
            } else {
                object.word.fetch_or(WaitObject::kQueued, std::memory_order_relaxed);
            }
        }
        link.previous = front ? nullptr : object.last;
        link.next = front ? object.first : nullptr;
        (link.previous == nullptr ? object.first : link.previous->next) = &link;
        (link.next == nullptr ? object.last : link.next->previous) = &link;
    }
    waiter.queued = true;
    waiter.previous = nullptr;
    waiter.next = g_firstWaiter;
    if (g_firstWaiter != nullptr) g_firstWaiter->previous = &waiter;
    g_firstWaiter = &waiter;
    waiter.outcome = Waiter::Outcome::waiting;
    waiter.thread->waiter = &waiter;
    // From here on every release either is visible to this thread's next look or sees that a thread is queued.
    if (newContention) requestBarrier();
    waiter.looksAgain = hasMutex && barrierWasRefused();
}

void Dispatcher::dequeue(Waiter& waiter) noexcept {
    if (!waiter.queued) return;
    for (std::size_t i = 0; i < waiter.count; ++i) {
        Link& link = waiter.links[i];
        WaitObject& object = *link.object;
        (link.previous == nullptr ? object.first : link.previous->next) = link.next;
        (link.next == nullptr ? object.last : link.next->previous) = link.previous;
        if (object.first == nullptr) {
            if (object.kind == Kind::mutex) {
                g_contended.unlink(object);
            } else {
                object.word.fetch_and(~WaitObject::kQueued, std::memory_order_relaxed);
            }
        }
    }
    waiter.queued = false;
    waiter.thread->waiter = nullptr;
    if (waiter.next != nullptr) waiter.next->previous = waiter.previous;
    (waiter.previous == nullptr ? g_firstWaiter : waiter.previous->next) = waiter.next;
}

void Dispatcher::finish(Waiter& waiter, Waiter::Outcome outcome, std::uint32_t result) noexcept {
    dequeue(waiter);
    waiter.outcome = outcome;
    waiter.result = result;
    wake(*waiter.thread);
}

void Dispatcher::recheck(Waiter& waiter) noexcept {
    wake(*waiter.thread);
}

bool Dispatcher::consume(Waiter& waiter, std::uint32_t& result) noexcept {
    bool abandoned = false;
    if (waiter.all) {
        if (!consumeAll(waiter, abandoned)) return false;
        result = abandoned ? kWaitAbandoned : kWaitObject0;
        return true;
    }
    for (std::size_t i = 0; i < waiter.count; ++i) {
        if (!consumeOne(*waiter.links[i].object, waiter.thread->id, abandoned)) continue;
        result = (abandoned ? kWaitAbandoned : kWaitObject0) + static_cast<std::uint32_t>(i);
        return true;
    }
    return false;
}

void Dispatcher::signal(WaitObject& object, bool keep) noexcept {
    const Freeze freeze(&object);
    object.word.fetch_or(WaitObject::kSignalled, std::memory_order_release);
    for (Link* link = object.first; link != nullptr;) {
        Link* const next = nextWait(*link);
        Waiter& waiter = *link->waiter;
        std::uint32_t result = kWaitFailed;
        if (consume(waiter, result)) finish(waiter, Waiter::Outcome::satisfied, result);
        if ((object.word.load(std::memory_order_relaxed) & WaitObject::kSignalled) == 0) return;
        link = next;
    }
    if (!keep) object.word.fetch_and(~WaitObject::kSignalled, std::memory_order_relaxed);
}

void Dispatcher::offer(WaitObject& mutex) noexcept {
    for (Link* link = mutex.first; link != nullptr;) {
        const std::uint32_t owner = mutex.owner.load(std::memory_order_relaxed);
        if (owner != WaitObject::kNobody && owner != WaitObject::kReserved) return;
        Link* const next = nextWait(*link);
        Waiter& waiter = *link->waiter;
        if (waiter.count == 1 && !waiter.wantsHandOver) {
            finish(waiter, Waiter::Outcome::retry, kWaitFailed);
            return;
        }
        std::uint32_t result = kWaitFailed;
        if (consume(waiter, result)) finish(waiter, Waiter::Outcome::satisfied, result);
        link = next;
    }
}

void Dispatcher::offerIfContended(const WaitObject* mutex) noexcept {
    if (WaitObject* const contended = g_contended.find(mutex); contended != nullptr) offer(*contended);
}

void Dispatcher::abandon(WaitObject& mutex) noexcept {
    mutex.abandoned = true;
    mutex.owner.store(WaitObject::kReserved, std::memory_order_release);
    offer(mutex);
}

void settleMutexes(Dispatcher& dispatcher, std::uint32_t endedId) noexcept {
    g_contended.forEach([&](WaitObject& mutex) {
        const std::uint32_t owner = mutex.owner.load(std::memory_order_acquire);
        if (owner == WaitObject::kNobody || owner == WaitObject::kReserved) {
            dispatcher.offer(mutex);
        } else if (owner == endedId) {
            dispatcher.abandon(mutex);
        }
    });
}

void refreshThread(ThreadObject& thread) noexcept {
    if (thread.forks != g_forks) thread.word.fetch_or(WaitObject::kSignalled, std::memory_order_relaxed);
}

void lockForFork(ThreadRecord& self) noexcept {
    self.holdsForFork = !self.inDispatcher;
    if (!self.holdsForFork) return;
    Region::begin(self);
    lockDispatcher();
}

void unlockAfterFork(ThreadRecord& self) noexcept {
    if (!std::exchange(self.holdsForFork, false)) return;
    unlockDispatcher();
    Region::end(self);
}

void resetInForkedChild(ThreadRecord& self) noexcept {
    ++g_forks;
    // What the parent's threads asked of this one was not meant for the child.
    self.controlPending = false;
    if (self.systemId != 0) self.systemId = static_cast<std::uint32_t>(syscall(SYS_gettid));
    if (ThreadObject* const thread = self.finishing; thread != nullptr) {
        thread->forks = g_forks;
        thread->systemId.store(self.systemId, std::memory_order_relaxed);
        thread->control.store(0, std::memory_order_relaxed);
    }
    // The other threads' stacks and thread-local objects are still in the child's memory.
    for (Waiter* waiter = g_firstWaiter; waiter != nullptr;) {
        Waiter& each = *std::exchange(waiter, waiter->next);
        if (each.thread != &self) Dispatcher::dequeue(each);
    }
    keepOnlyThread(self);
    if (std::exchange(self.holdsForFork, false)) Region::end(self);
    g_lock.store(kFree, std::memory_order_release);
}

void offerReleasedMutexes(ThreadRecord& self) noexcept {
    Dispatcher dispatcher(self);
    settleMutexes(dispatcher, WaitObject::kNobody);
}

void abandonWait(ThreadRecord& self) noexcept {
    Dispatcher dispatcher(self);
    if (self.waiter != nullptr) dispatcher.dequeue(*self.waiter);
    // If this thread was woken to try for a mutex, or was about to offer one that it had released, the next in the
    // queue is woken in its place.
    settleMutexes(dispatcher, WaitObject::kNobody);
}

}  // namespace KestSupport::platform
