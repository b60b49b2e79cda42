// Events, mutexes and waitable timers: the fast paths without the dispatcher, and the wait itself.
#include <algorithm>
#include <bit>
#include <new>
#include <optional>
#include <utility>

#include "platform/common/fault_seam.h"
#include "platform/common/wait_arguments.h"
#include "platform/emulated/barrier.h"
#include "platform/emulated/wait_dispatcher.h"
#include "platform/spin.h"
#include "platform/thread.h"

namespace KestSupport::platform {
namespace {

using Kind = WaitObject::Kind;

// The lengths of spins, in nanoseconds. The least spin covers the answer of a thread that runs. The usual one (4 us)
// covers a round trip of 2 us between two running threads. A probe covers a round trip in which both threads sleep: 11
// us, or 50 us if a processor of a virtual machine halts (docs/performance.md, bench/events).
//
// A mutex that changes hands often is disturbed by every look. So the looks are rare, and last until a sleeping thread
// could have been woken. A stream of 10,000 items through a queue takes 0.5 ms instead of 1.3 ms
// (bench/producer_consumer).
constexpr unsigned kLeastSpin = 700;
constexpr unsigned kUsualSpin = 4000;
constexpr unsigned kProbe = 40'000;
constexpr unsigned kLeastMutexSpin = 4000;
constexpr unsigned kUsualMutexSpin = 16'000;
constexpr unsigned kFirstGap = 150;
constexpr unsigned kLongestGap = 2400;
constexpr std::uint32_t kFirstProbe = 8;
constexpr std::uint32_t kProbeEvery = 1024;
constexpr std::uint32_t kHandOverAfter = 1;  // milliseconds

enum class Attempt : std::uint8_t { taken, notSignalled, frozen };

WaitHandle newObject(Kind kind, std::uint32_t word, const char* call) noexcept {
    if (injectedFault(call) != 0) return nullptr;
    auto* const object = new (std::nothrow) WaitObject(kind);
    if (object != nullptr) object->word.store(word, std::memory_order_relaxed);
    return object;
}

Attempt tryEvent(WaitObject& event) noexcept {
    std::uint32_t word = event.word.load(std::memory_order_acquire);
    while ((word & WaitObject::kFrozen) == 0) {
        if ((word & WaitObject::kSignalled) == 0) return Attempt::notSignalled;
        if (event.kind == Kind::manualEvent) return Attempt::taken;
        if (event.word.compare_exchange_weak(word, word & ~WaitObject::kSignalled, std::memory_order_acq_rel,
                                             std::memory_order_acquire)) {
            return Attempt::taken;
        }
    }
    return Attempt::frozen;
}

bool tryMutex(WaitObject& mutex, std::uint32_t id) noexcept {
    std::uint32_t owner = WaitObject::kNoOwner;
    return mutex.owner.compare_exchange_strong(owner, id, std::memory_order_acquire, std::memory_order_relaxed);
}

// One look of a spin. Returns nothing to continue, true if the object was taken, false if the dispatcher must decide.
std::optional<bool> glance(WaitObject& object, ThreadRecord& self) noexcept {
    const bool promising = object.kind == Kind::mutex
                               ? object.owner.load(std::memory_order_relaxed) == WaitObject::kNoOwner
                               : (object.word.load(std::memory_order_relaxed) & WaitObject::kSignalled) != 0;
    if (!promising) return std::nullopt;
    if (object.kind == Kind::mutex) return tryMutex(object, self.id) ? std::optional(true) : std::nullopt;
    const Attempt attempt = tryEvent(object);
    return attempt == Attempt::notSignalled ? std::nullopt : std::optional(attempt == Attempt::taken);
}

// Returns the length of a spin, given the number of successive spins without success. After failures, most spins are
// short. Two threads that answer each other would then both sleep forever, since a wake-up takes longer than a short
// spin. So a spin is sometimes, and increasingly rarely, a probe that is long enough to meet a thread that is being
// woken.
unsigned spinLength(bool forMutex, std::uint32_t failures) noexcept {
    if (failures == 0) return forMutex ? kUsualMutexSpin : kUsualSpin;
    const bool probe = failures >= kFirstProbe && (std::has_single_bit(failures) || failures % kProbeEvery == 0);
    if (probe) return kProbe;
    return forMutex ? kLeastMutexSpin : kLeastSpin;
}

// A thread that was woken from this processor by another thread would spin where that thread runs. A round trip of two
// threads on one processor takes 3.3 instead of 8 us.
bool spinningPays(const SpinHint& hint, const ThreadRecord& self) noexcept {
    const std::uint32_t waker = hint.lastWaker.load(std::memory_order_relaxed);
    const std::uint32_t here = SpinHint::wakerOf(self.id, currentProcessor());
    return waker == here || (waker & SpinHint::kProcessor) != (here & SpinHint::kProcessor);
}

// Spins with the test, which returns whether to end, and notes whether that pays. Returns whether the test ended it.
template <typename Test>
bool spin(WaitObject& object, const ThreadRecord& self, const Test& test) noexcept {
    SpinHint& hint = object.hint;
    if (!spinningPays(hint, self)) return false;
    const bool forMutex = object.kind == Kind::mutex;
    const std::uint32_t failures = hint.failures.load(std::memory_order_relaxed);
    const unsigned pauses = pausesFor(spinLength(forMutex, failures));
    const bool ended =
        forMutex ? spinWithGaps(pauses, pausesFor(kFirstGap), pausesFor(kLongestGap), test) : spinUntil(pauses, test);
    if (!ended || failures != 0) hint.failures.store(ended ? 0 : failures + 1, std::memory_order_relaxed);
    return ended;
}

// Spins before the thread is queued. Returns whether it took the object.
bool spinFor(WaitObject& object, ThreadRecord& self) noexcept {
    if (!object.isEvent() && object.kind != Kind::mutex) return false;
    std::optional<bool> end;
    spin(object, self, [&] { return (end = glance(object, self)).has_value(); });
    return end == true;
}

// Spins until the queued wait of the thread has ended or must look again.
void spinQueued(WaitObject& object, const ThreadRecord& self) noexcept {
    spin(object, self, [&] { return self.parked.load(std::memory_order_acquire) != parkArmed; });
}

void park(ThreadRecord& self, Deadline deadline) noexcept {
    std::uint32_t state = parkArmed;
    if (!self.parked.compare_exchange_strong(state, parkAsleep, std::memory_order_acquire, std::memory_order_acquire)) {
        return;
    }
    while (self.parked.load(std::memory_order_acquire) == parkAsleep) {
        futexWait(self.parked, parkAsleep, deadline);
        if (!deadline.isNever() && deadline.hasPassed()) return;
    }
}

// The wait of one thread, from its first look under the dispatcher lock to its end.
class SlowWait {
  public:
    SlowWait(ThreadRecord& self, Waiter& waiter, std::uint32_t timeout) noexcept
        : m_self(self), m_waiter(waiter), m_timeout(timeout) {
        m_waiter.thread = &self;
    }

    std::uint32_t run(WaitObject* toSignal) noexcept {
        if (!begin(toSignal)) return m_waiter.result;
        if (toSignal != nullptr) spinQueued(*m_waiter.links[0].object, m_self);
        for (;;) {
            park(m_self, std::min(m_deadline, m_nextDue));
            if (finished()) return m_waiter.result;
        }
    }

  private:
    // Returns whether the thread must sleep.
    bool begin(WaitObject* toSignal) noexcept {
        if (m_timeout != 0) m_deadline = Deadline::after(m_timeout);
        Dispatcher dispatcher(m_self);
        if (toSignal != nullptr && !signalFirst(dispatcher, *toSignal)) return false;
        if (consumed(dispatcher)) return false;
        if (m_timeout == 0) {
            m_waiter.result = kWaitTimeout;
            return false;
        }
        return !queue(dispatcher, false);
    }

    // Ends the wait if its objects can be consumed now.
    bool consumed(Dispatcher& dispatcher) noexcept {
        const std::optional<std::uint32_t> result = dispatcher.consume(m_waiter);
        if (!result) return false;
        Dispatcher::dequeue(m_waiter);
        m_waiter.result = *result;
        return true;
    }

    bool signalFirst(Dispatcher& dispatcher, WaitObject& object) noexcept {
        if (object.isEvent()) {
            dispatcher.signal(object, true);
            return true;
        }
        if (object.kind != Kind::mutex || object.owner.load(std::memory_order_relaxed) != m_self.id) return false;
        if (object.innerLevels.load(std::memory_order_relaxed) != 0) {
            object.addLevels(-1);
            return true;
        }
        object.owner.store(WaitObject::kNoOwner, std::memory_order_release);
        dispatcher.offer(object);
        return true;
    }

    // Queues the wait and looks once more: from now on signals find the queue, but one may have come just before.
    // Returns whether that ended the wait.
    bool queue(Dispatcher& dispatcher, bool front) noexcept {
        m_self.parked.store(parkArmed, std::memory_order_relaxed);
        dispatcher.enqueue(m_waiter, front);
        if (consumed(dispatcher)) return true;
        noteNextLook();
        return false;
    }

    // Determines when the thread must look again without being woken.
    void noteNextLook() noexcept {
        m_nextDue = std::exchange(m_waiter.looksAgain, false) ? Deadline::after(kDrainTime) : Deadline::never();
        for (std::size_t i = 0; i < m_waiter.count; ++i) {
            const WaitObject& object = *m_waiter.links[i].object;
            if (object.isTimer()) m_nextDue = std::min(m_nextDue, object.due);
        }
    }

    // After a wake-up or a time-out: returns whether the wait is over.
    bool finished() noexcept {
        if (wasGivenEvent() || retrySucceeded()) return true;
        Dispatcher dispatcher(m_self);
        if (m_waiter.outcome == Waiter::Outcome::satisfied) return true;
        const bool lostRetry = !m_waiter.queued;
        if (consumed(dispatcher)) return true;
        const Deadline::Time now = Deadline::now();
        if (m_deadline.hasPassed(now)) {
            dispatcher.dequeue(m_waiter);
            m_waiter.result = kWaitTimeout;
            return true;
        }
        if (!lostRetry) {
            m_self.parked.store(parkArmed, std::memory_order_relaxed);
            noteNextLook();
            return false;
        }
        if (m_handOver.isNever()) m_handOver = Deadline::after(kHandOverAfter);
        m_waiter.wantsHandOver = m_handOver.hasPassed(now);
        return queue(dispatcher, true);
    }

    // A thread that waits for one event is woken once, with the event. No other thread uses the wait afterwards. So the
    // wait is read without the dispatcher lock, which the waking thread may still hold.
    bool wasGivenEvent() const noexcept {
        return m_waiter.count == 1 && m_waiter.links[0].object->isEvent() &&
               m_self.parked.load(std::memory_order_acquire) == parkWoken;
    }

    // A thread that was woken to try for a mutex tries first without the dispatcher lock.
    bool retrySucceeded() noexcept {
        if (m_waiter.count != 1 || m_waiter.links[0].object->kind != Kind::mutex) return false;
        if (m_self.parked.load(std::memory_order_acquire) != parkWoken) return false;
        if (m_waiter.outcome != Waiter::Outcome::retry) return false;
        WaitObject& mutex = *m_waiter.links[0].object;
        if (!tryMutex(mutex, m_self.id) && !spinFor(mutex, m_self)) return false;
        m_waiter.result = kWaitObject0;
        return true;
    }

    ThreadRecord& m_self;
    Waiter& m_waiter;
    const std::uint32_t m_timeout;
    Deadline m_deadline = Deadline::never();
    Deadline m_nextDue = Deadline::never();
    Deadline m_handOver = Deadline::never();  // set when another thread first takes the mutex before this one
};

std::uint32_t waitSlowly(ThreadRecord& self, WaitObject& object, std::uint32_t timeout, WaitObject* toSignal) noexcept {
    Link link;
    link.object = &object;
    Waiter waiter;
    waiter.links = &link;
    waiter.count = 1;
    return SlowWait(self, waiter, timeout).run(toSignal);
}

// The slow paths of the two calls of a lock are not inlined, so the fast paths save no registers. Two levels take 12.1
// instead of 12.6 ns (bench/locks).
[[gnu::noinline]] void offerReleased(WaitHandle mutex) noexcept {
    Dispatcher dispatcher(currentRecord());
    dispatcher.offerIfContended(mutex);
}

// Waits for an object that the fast path did not take.
[[gnu::noinline]] std::uint32_t waitAfterFirstLook(WaitObject& object, std::uint32_t timeout) noexcept {
    ThreadRecord& self = currentRecord();
    if (object.isEvent()) {
        const Attempt attempt = tryEvent(object);
        if (attempt == Attempt::taken) return kWaitObject0;
        if (attempt == Attempt::notSignalled && timeout == 0) return kWaitTimeout;
    } else if (object.kind == Kind::mutex && tryMutex(object, self.id)) {
        return kWaitObject0;
    }
    if (object.kind == Kind::thread && timeout == kInfinite && endsSoon(&object)) return kWaitObject0;
    if (timeout != 0 && spinFor(object, self)) return kWaitObject0;
    return waitSlowly(self, object, timeout, nullptr);
}

}  // namespace

WaitHandle createEvent(bool manualReset, bool signalled) noexcept {
    return newObject(manualReset ? Kind::manualEvent : Kind::autoEvent, signalled ? WaitObject::kSignalled : 0,
                     "createEvent");
}

bool setEvent(WaitHandle event) noexcept {
    if (event == nullptr || !event->isEvent()) return false;
    std::uint32_t word = 0;
    // A signalled event is written too: the thread that consumes it must see what this thread did before.
    while ((word & (WaitObject::kQueued | WaitObject::kFrozen)) == 0) {
        if (event->word.compare_exchange_strong(word, word | WaitObject::kSignalled, std::memory_order_release,
                                                std::memory_order_relaxed)) {
            return true;
        }
    }
    Dispatcher dispatcher(currentRecord());
    dispatcher.signal(*event, true);
    return true;
}

bool resetEvent(WaitHandle event) noexcept {
    if (event == nullptr || !event->isEvent()) return false;
    std::uint32_t word = event->word.load(std::memory_order_relaxed);
    while ((word & WaitObject::kFrozen) == 0) {
        if (event->word.compare_exchange_weak(word, word & ~WaitObject::kSignalled, std::memory_order_acq_rel,
                                              std::memory_order_relaxed)) {
            return true;
        }
    }
    Dispatcher dispatcher(currentRecord());
    event->word.fetch_and(~WaitObject::kSignalled, std::memory_order_acq_rel);
    return true;
}

bool pulseEvent(WaitHandle event) noexcept {
    if (event == nullptr || !event->isEvent()) return false;
    Dispatcher dispatcher(currentRecord());
    dispatcher.signal(*event, false);
    return true;
}

bool isAwaited(WaitHandle event, WaitHandle mutex) noexcept {
    return (event->word.load(std::memory_order_relaxed) & WaitObject::kQueued) != 0 &&
           mutex->owner.load(std::memory_order_relaxed) == currentRecord().id;
}

WaitHandle createMutex() noexcept {
    return newObject(Kind::mutex, 0, "createMutex");
}

WaitHandle createLock() noexcept {
    return createMutex();
}

bool releaseMutex(WaitHandle mutex) noexcept {
    if (mutex == nullptr || mutex->kind != Kind::mutex) return false;
    const std::uint32_t owner = mutex->owner.load(std::memory_order_relaxed);
    if (owner == WaitObject::kNoOwner || owner != t_record.id) return false;
    if (mutex->innerLevels.load(std::memory_order_relaxed) != 0) {
        mutex->addLevels(-1);
        return true;
    }
    storeBeforeLoad(mutex->owner, WaitObject::kNoOwner);
    // Another thread may have taken and freed the mutex. From here on only its address is used.
    if (g_contended.mayHold(mutex)) [[unlikely]]
        offerReleased(mutex);
    return true;
}

std::uint32_t mutexLevels(WaitHandle mutex) noexcept {
    const std::uint32_t owner = mutex->owner.load(std::memory_order_relaxed);
    if (owner == WaitObject::kNoOwner || owner == WaitObject::kReserved) return 0;
    return mutex->innerLevels.load(std::memory_order_relaxed) + 1;
}

WaitHandle createWaitableTimer(bool manualReset) noexcept {
    return newObject(manualReset ? Kind::manualTimer : Kind::autoTimer, 0, "createWaitableTimer");
}

bool setWaitableTimer(WaitHandle timer, std::int64_t delay, std::int32_t period) noexcept {
    if (timer == nullptr || !timer->isTimer() || period < 0 || injectedFault("setWaitableTimer") != 0) return false;
    constexpr std::int64_t kLongest = Deadline::never().time() / 400;
    const Deadline due = Deadline::at(Deadline::now() + std::clamp<std::int64_t>(delay, 0, kLongest) * 100);
    Dispatcher dispatcher(currentRecord());
    timer->word.fetch_and(~WaitObject::kSignalled, std::memory_order_relaxed);
    timer->due = due;
    timer->period = period * Deadline::kMillisecond;
    for (const Link* link = timer->queue.first(); link != nullptr; link = link->inQueue.next)
        dispatcher.recheck(*link->waiter);
    return true;
}

bool cancelWaitableTimer(WaitHandle timer) noexcept {
    if (timer == nullptr || !timer->isTimer()) return false;
    Dispatcher dispatcher(currentRecord());
    refreshTimer(*timer);
    timer->due = Deadline::never();
    return true;
}

std::uint32_t waitForOne(WaitHandle object, std::uint32_t timeout) noexcept {
    if (object == nullptr) return kWaitFailed;
    if (object->kind == Kind::mutex) {
        // A thread that is not attached has no id to own a mutex with.
        if (const std::uint32_t self = t_record.id; self != 0) [[likely]] {
            if (object->owner.load(std::memory_order_relaxed) == self) {
                object->addLevels(1);
                return kWaitObject0;
            }
            if (tryMutex(*object, self)) return kWaitObject0;
        }
    } else if (object->kind == Kind::autoEvent) {
        // Tries the most common state without a look: a load would wait for the locked instruction of a set just
        // before, and the locked instruction of this call for the load. A set and a wait take 14 instead of 16 ns
        // (bench/internal, events/platform set and wait).
        std::uint32_t word = WaitObject::kSignalled;
        if (object->word.compare_exchange_strong(word, 0, std::memory_order_acq_rel, std::memory_order_relaxed)) {
            return kWaitObject0;
        }
    }
    return waitAfterFirstLook(*object, timeout);
}

std::uint32_t waitForMany(std::span<const WaitHandle> objects, bool all, std::uint32_t timeout) noexcept {
    if (!canWaitFor(objects, all)) return kWaitFailed;
    std::array<Link, kMaximumWaitObjects> links;
    for (std::size_t i = 0; i < objects.size(); ++i)
        links[i].object = objects[i];
    Waiter waiter;
    waiter.links = links.data();
    waiter.count = objects.size();
    waiter.all = all;
    return SlowWait(currentRecord(), waiter, timeout).run(nullptr);
}

std::uint32_t signalAndWait(WaitHandle toSignal, WaitHandle toWait, std::uint32_t timeout) noexcept {
    if (toSignal == nullptr || toWait == nullptr) return kWaitFailed;
    return waitSlowly(currentRecord(), *toWait, timeout, toSignal);
}

void closeHandle(WaitHandle object) noexcept {
    if (object == nullptr) return;
    if (object->kind == Kind::thread) {
        closeThread(*object);
        return;
    }
    // The thread that signalled this one may still be inside its call, but it has released the dispatcher lock after
    // this.
    { Dispatcher dispatcher(currentRecord()); }
    delete object;
}

}  // namespace KestSupport::platform
