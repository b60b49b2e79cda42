// Timers: events that set themselves after an interval, once or again and again.
//
// A firing is a set of the timer as an event: its dependents are notified first, then one waiter is released; a firing
// that no thread waits for stays signalled. Intervals are counted from the start. Due times are compared by whole
// seconds of the calendar clock: timers that are due in the same second fire together, the one that was started last
// first, so a timer may fire up to a second early or late when others share its second. Nothing finer than "about" is
// promised; use a thread of your own for pacing below a tenth of a second.
//
// A timer is due when the calendar has reached its second, or when its interval is over on the steady clock, whichever
// is first. So a calendar that is set forward, or that advanced while the system slept, makes the timers due whose
// second has passed; they fire within about five seconds. A calendar that is set back delays no timer.
//
// Threads: every operation may be called by any thread and by a dependent inside a notification, for any timer. A timer
// fires on a thread of the library or, when it is due already, on a thread that is just starting, resetting or stopping
// some timer, before that call returns. Therefore do not hold a lock around these calls that a dependent of any timer
// needs. Dependents run without a lock of the library, one firing at a time; what they throw is dropped.
//
// Lifetime: a timer is stopped by its destructor, which waits for a firing on another thread. A timer must not be
// destroyed inside its own notification: it is signalled after that. A class derived from KestTimer calls stop in its
// own destructor, since its overrides are gone when the base's destructor runs. After the library has been torn down,
// start and stop do nothing.
//
// Failure: timers fire on threads, and the first start of an idle process makes one. When the system gives none, start
// (and reset) throw, the timer is left stopped, and it keeps the new interval: a later reset tries again. A timer that
// start has returned for fires, whatever the system refuses after that.
#pragma once

#include <atomic>
#include <cstdint>

#include "support/events.h"
#include "support/exceptions.h"
#include "support/export.h"

namespace KestSupport {

class KestTimer;

namespace internal {

/// What a timer is set to, as one value that threads can read whole. The parts are normalised: the milliseconds are
/// below 1000 in size.
struct alignas(8) TimerSetting {  // read and written as one word
    std::int32_t seconds = 0;
    std::int16_t milliseconds = 0;
    bool oneShot = false;
};

/// A timer's place in the list of the active timers. Everything in it belongs to that list and is guarded by its lock.
struct TimerEntry {
    explicit TimerEntry(KestTimer* timer = nullptr) noexcept : owner(timer) {}

    KestTimer* const owner;
    std::int64_t expirySeconds = 0;       // calendar time at which it is due
    std::int32_t expiryMilliseconds = 0;  // never decides an order
    std::int64_t deadline = 0;            // steady time at which its interval is over
    std::uint64_t sequence = 0;           // grows with each insertion
    std::uint64_t pass = 0;               // the last dispatch pass that fired it
    std::uint64_t generation = 0;         // with the list's own number it is in the list
    std::uint32_t bucket = 0;
    TimerEntry* next = nullptr;
    TimerEntry* previous = nullptr;
};

}  // namespace internal

/// One timer. Seconds and milliseconds are added up; negative parts count.
class KEST_SUPPORT_EXPORT KestTimer : public KestEvent {
  public:
    /// No interval, periodic, not started.
    KestTimer() noexcept;
    /// Not started; reset starts it.
    KestTimer(std::int32_t milliseconds, bool oneShot) noexcept;
    KestTimer(std::int32_t seconds, std::int32_t milliseconds, bool oneShot) noexcept;
    /// Two numbers would mean milliseconds and a flag, not seconds and milliseconds.
    KestTimer(std::int32_t, std::int32_t) = delete;
    ~KestTimer() override;

    /// Starts with the interval that the timer has, from now. It does not clear the signal. Throws as start.
    void reset() override;
    /// Starts the timer, or restarts it from now: once, or periodically until it is stopped. When neither of the two
    /// parts is above 0, the timer is left stopped. A firing under way on another thread is not waited for. An interval
    /// whose sum is negative is due at once. Throws KestException "KestTimer::start: Cannot create a thread that fires
    /// timers", code 0, with the timer stopped; never inside a firing.
    virtual void start(std::int32_t seconds, std::int32_t milliseconds, bool oneShot);
    virtual void start(std::int32_t milliseconds, bool oneShot);
    void start(std::int32_t, std::int32_t) = delete;
    /// Stops the timer. When another thread is firing it, that firing is over on return; inside the timer's own
    /// notification stop returns at once, and the timer stays stopped.
    virtual void stop();
    /// Asked at each firing, without a lock: when false, the timer is armed again.
    virtual bool isOneShot() const;

  private:
    friend class KestTimerManager;

    std::atomic<internal::TimerSetting> m_setting;  // written under the manager's list lock
    std::atomic<bool> m_registered{false};          // in the list or being fired; written under the manager's list lock
    internal::TimerEntry m_entry{this};
};

}  // namespace KestSupport
