#include "platform/emulated/wait_dispatcher.h"

#include <utility>

#include "platform/emulated/barrier.h"
#include "platform/emulated/futex_lock.h"
#include "platform/emulated/runtime_calls.h"

namespace KestSupport::platform {
namespace {

using Kind = WaitObject::Kind;

constinit FutexWord g_lock{0};                              // a FutexLock, held for a few list operations
constinit IntrusiveList<Waiter, &Waiter::inAll> g_waiters;  // guarded by g_lock

// Freezes an object until the end of the scope, unless it is frozen already.
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

// Returns the next link of the queue that belongs to another wait. A wait may name an object twice.
Link* nextWait(const Link& link) noexcept {
    Link* next = link.inQueue.next;
    while (next != nullptr && next->waiter == link.waiter)
        next = next->inQueue.next;
    return next;
}

// Takes a mutex for the thread with the id. Returns false if another thread owns it. Sets `abandoned` if its owner has
// ended.
bool takeMutex(WaitObject& mutex, std::uint32_t id, bool& abandoned) noexcept {
    std::uint32_t owner = mutex.owner.load(std::memory_order_acquire);
    if (owner == id) {
        mutex.addLevels(1);
        return true;
    }
    while (owner == WaitObject::kNoOwner) {
        if (mutex.owner.compare_exchange_weak(owner, id, std::memory_order_acquire, std::memory_order_acquire)) {
            return true;
        }
    }
    // Only threads with the dispatcher lock change a mutex that is reserved or whose owner has ended.
    const bool ownerGone = owner != WaitObject::kReserved && !isAttached(owner);
    if (owner != WaitObject::kReserved && !ownerGone) return false;
    abandoned = abandoned || ownerGone || mutex.abandoned;
    mutex.abandoned = false;
    mutex.innerLevels.store(0, std::memory_order_relaxed);
    mutex.owner.store(id, std::memory_order_relaxed);
    return true;
}

// Updates the state of an object that depends on the time or on a fork.
void refresh(WaitObject& object) noexcept {
    if (object.isTimer()) refreshTimer(object);
    // In a forked child the threads of the parent have ended.
    if (object.kind == Kind::thread && object.forks != g_forks) {
        object.word.fetch_or(WaitObject::kSignalled, std::memory_order_relaxed);
    }
}

// Prevents other threads from consuming an object until unreserve. Returns whether the thread with the id could consume
// it. Sets `reserved` if the caller must call unreserve.
bool reserve(WaitObject& object, std::uint32_t id, bool& reserved) noexcept {
    if (object.kind != Kind::mutex) {
        const std::uint32_t before = object.word.fetch_or(WaitObject::kFrozen, std::memory_order_acquire);
        reserved = (before & WaitObject::kFrozen) == 0;
        refresh(object);
        return object.isSignalled();
    }
    std::uint32_t owner = WaitObject::kNoOwner;
    reserved = object.owner.compare_exchange_strong(owner, WaitObject::kReserved, std::memory_order_acquire,
                                                    std::memory_order_acquire);
    return reserved || owner == id || owner == WaitObject::kReserved || !isAttached(owner);
}

void unreserve(WaitObject& object) noexcept {
    if (object.kind != Kind::mutex) {
        object.word.fetch_and(~WaitObject::kFrozen, std::memory_order_release);
        return;
    }
    // A mutex that was consumed has an owner.
    std::uint32_t owner = WaitObject::kReserved;
    object.owner.compare_exchange_strong(owner, WaitObject::kNoOwner, std::memory_order_release,
                                         std::memory_order_relaxed);
}

bool consumeOne(WaitObject& object, std::uint32_t id, bool& abandoned) noexcept {
    if (object.kind == Kind::mutex) return takeMutex(object, id, abandoned);
    refresh(object);
    if (!object.resetsItself()) return object.isSignalled();
    // A thread on the fast path may have consumed the signal first.
    const std::uint32_t before = object.word.fetch_and(~WaitObject::kSignalled, std::memory_order_acq_rel);
    return (before & WaitObject::kSignalled) != 0;
}

bool consumeAll(Waiter& waiter, bool& abandoned) noexcept {
    const std::uint32_t id = waiter.thread->id;
    std::array<bool, kMaximumWaitObjects> reserved{};
    bool available = true;
    std::size_t looked = 0;
    for (; looked < waiter.count && available; ++looked) {
        available = reserve(*waiter.links[looked].object, id, reserved[looked]);
    }
    for (std::size_t i = 0; i < looked; ++i) {
        WaitObject& object = *waiter.links[i].object;
        if (available) consumeOne(object, id, abandoned);
        if (reserved[i]) unreserve(object);
    }
    return available;
}

}  // namespace

constinit ContendedMutexes g_contended;
constinit std::uint32_t g_forks = 0;

void refreshTimer(WaitObject& timer) noexcept {
    const Deadline::Time now = Deadline::now();
    if (!timer.due.hasPassed(now)) return;
    timer.word.fetch_or(WaitObject::kSignalled, std::memory_order_relaxed);
    // The periods that have passed without a look count as one.
    const Deadline::Time due = timer.due.time();
    timer.due =
        timer.period == 0 ? Deadline::never() : Deadline::at(due + ((now - due) / timer.period + 1) * timer.period);
}

void ContendedMutexes::setFirst(std::size_t chain, WaitObject* mutex) noexcept {
    const bool several = mutex != nullptr && mutex->nextInChain != nullptr;
    m_chains[chain].store(reinterpret_cast<std::uintptr_t>(mutex) | (several ? kSeveral : kEmpty),
                          std::memory_order_relaxed);
}

void ContendedMutexes::link(WaitObject& mutex) noexcept {
    const std::size_t chain = chainOf(&mutex);
    mutex.nextInChain = first(chain);
    setFirst(chain, &mutex);
    ++m_count;
}

// A chain is short, so its mutexes do not know their predecessors.
void ContendedMutexes::unlink(WaitObject& mutex) noexcept {
    const std::size_t chain = chainOf(&mutex);
    WaitObject* head = first(chain);
    WaitObject** place = &head;
    while (*place != &mutex)
        place = &(*place)->nextInChain;
    *place = mutex.nextInChain;
    setFirst(chain, head);
    --m_count;
}

WaitObject* ContendedMutexes::find(const WaitObject* address) noexcept {
    WaitObject* mutex = first(chainOf(address));
    while (mutex != nullptr && mutex != address)
        mutex = mutex->nextInChain;
    return mutex;
}

Dispatcher::Dispatcher(ThreadRecord& self) noexcept : m_self(self), m_region(self) {
    m_self.inDispatcher = true;
    std::atomic_signal_fence(std::memory_order_seq_cst);
    FutexLock::lock(g_lock);
}

Dispatcher::~Dispatcher() {
    FutexLock::unlock(g_lock);
    std::atomic_signal_fence(std::memory_order_seq_cst);
    m_self.inDispatcher = false;
    for (std::size_t i = 0; i < m_wakeCount; ++i)
        futexWake(m_toWake[i], 1);
}

void Dispatcher::wake(ThreadRecord& thread) noexcept {
    // From here on the thread may return from its wait and end. Only the address of the word is used.
    FutexWord* const word = &thread.parked;
    if (word->exchange(parkWoken, std::memory_order_release) != parkAsleep) return;
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
        if (object.queue.isEmpty()) {
            if (object.kind == Kind::mutex) {
                g_contended.link(object);
                newContention = true;
            } else {
                object.word.fetch_or(WaitObject::kQueued, std::memory_order_relaxed);
            }
        }
        front ? object.queue.pushFront(link) : object.queue.pushBack(link);
    }
    g_waiters.pushFront(waiter);
    waiter.queued = true;
    waiter.outcome = Waiter::Outcome::waiting;
    waiter.thread->waiter = &waiter;
    // From here on, this thread sees every release at its next look, or the releasing thread sees the queue.
    if (newContention) requestBarrier();
    waiter.looksAgain = hasMutex && barrierWasRefused();
}

void Dispatcher::dequeue(Waiter& waiter) noexcept {
    if (!waiter.queued) return;
    for (std::size_t i = 0; i < waiter.count; ++i) {
        WaitObject& object = *waiter.links[i].object;
        object.queue.remove(waiter.links[i]);
        if (!object.queue.isEmpty()) continue;
        if (object.kind == Kind::mutex) {
            g_contended.unlink(object);
        } else {
            object.word.fetch_and(~WaitObject::kQueued, std::memory_order_relaxed);
        }
    }
    g_waiters.remove(waiter);
    waiter.queued = false;
    waiter.thread->waiter = nullptr;
}

void Dispatcher::finish(WaitObject& object, Waiter& waiter, Waiter::Outcome outcome, std::uint32_t result) noexcept {
    object.hint.lastWaker.store(SpinHint::wakerOf(m_self.id, currentProcessor()), std::memory_order_relaxed);
    dequeue(waiter);
    waiter.outcome = outcome;
    waiter.result = result;
    wake(*waiter.thread);
}

void Dispatcher::recheck(Waiter& waiter) noexcept {
    wake(*waiter.thread);
}

std::optional<std::uint32_t> Dispatcher::consume(Waiter& waiter) noexcept {
    bool abandoned = false;
    const auto resultWith = [&](std::size_t index) {
        return (abandoned ? kWaitAbandoned : kWaitObject0) + static_cast<std::uint32_t>(index);
    };
    if (waiter.all) return consumeAll(waiter, abandoned) ? std::optional(resultWith(0)) : std::nullopt;
    for (std::size_t i = 0; i < waiter.count; ++i) {
        if (consumeOne(*waiter.links[i].object, waiter.thread->id, abandoned)) return resultWith(i);
    }
    return std::nullopt;
}

void Dispatcher::signal(WaitObject& object, bool keep) noexcept {
    const Freeze freeze(&object);
    object.word.fetch_or(WaitObject::kSignalled, std::memory_order_release);
    for (Link* link = object.queue.first(); link != nullptr;) {
        Link* const next = nextWait(*link);
        Waiter& waiter = *link->waiter;
        if (const auto result = consume(waiter)) finish(object, waiter, Waiter::Outcome::satisfied, *result);
        if (!object.isSignalled()) return;
        link = next;
    }
    if (!keep) object.word.fetch_and(~WaitObject::kSignalled, std::memory_order_relaxed);
}

void Dispatcher::offer(WaitObject& mutex) noexcept {
    for (Link* link = mutex.queue.first(); link != nullptr;) {
        const std::uint32_t owner = mutex.owner.load(std::memory_order_relaxed);
        if (owner != WaitObject::kNoOwner && owner != WaitObject::kReserved) return;
        Link* const next = nextWait(*link);
        Waiter& waiter = *link->waiter;
        if (waiter.count == 1 && !waiter.wantsHandOver) {
            finish(mutex, waiter, Waiter::Outcome::retry, kWaitFailed);
            return;
        }
        if (const auto result = consume(waiter)) finish(mutex, waiter, Waiter::Outcome::satisfied, *result);
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
        if (owner == WaitObject::kNoOwner || owner == WaitObject::kReserved) {
            dispatcher.offer(mutex);
        } else if (owner == endedId) {
            dispatcher.abandon(mutex);
        }
    });
}

void lockForFork(ThreadRecord& self) noexcept {
    self.holdsForFork = !self.inDispatcher;
    if (!self.holdsForFork) return;
    Region::begin(self);
    beginFork(self);
    FutexLock::lock(g_lock);
}

void unlockAfterFork(ThreadRecord& self) noexcept {
    if (!std::exchange(self.holdsForFork, false)) return;
    FutexLock::unlock(g_lock);
    endFork(self);
    Region::end(self);
}

void resetInForkedChild(ThreadRecord& self) noexcept {
    ++g_forks;
    // A request to a thread of the parent does not concern the child.
    self.controlPending = false;
    if (self.systemId != 0) self.systemId = systemThreadId();
    if (self.finishing != nullptr) adoptThread(*self.finishing, self.systemId);
    // The stacks and thread-local objects of the other threads are still in the memory of the child.
    for (Waiter* waiter = g_waiters.first(); waiter != nullptr; waiter = waiter->inAll.next) {
        if (waiter->thread != &self) Dispatcher::dequeue(*waiter);
    }
    keepOnlyThread(self);
    forgetLeavingThreads(self);
    forgetRuntimeCalls(self, self.holdsForFork);
    if (std::exchange(self.holdsForFork, false)) Region::end(self);
    g_lock.store(0, std::memory_order_release);
}

void offerReleasedMutexes(ThreadRecord& self) noexcept {
    Dispatcher dispatcher(self);
    settleMutexes(dispatcher, WaitObject::kNoOwner);
}

void abandonWait(ThreadRecord& self) noexcept {
    Dispatcher dispatcher(self);
    if (self.waiter != nullptr) dispatcher.dequeue(*self.waiter);
    // If this thread was woken to try for a mutex, or was about to offer one, the next waiter is woken instead.
    settleMutexes(dispatcher, WaitObject::kNoOwner);
}

}  // namespace KestSupport::platform
