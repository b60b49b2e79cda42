// Timers: events that set themselves after an interval, once or periodically.
//
// A firing sets the timer as an event: first its dependents are notified, then one waiter is released. When no thread
// waits, the timer stays signalled. An interval begins at start. Due times are compared by whole seconds of the
// calendar clock: timers that are due in the same second fire together, the one that was started last first. So a timer
// may fire up to a second early or late when other timers are due in its second. A program that needs a pace below a
// tenth of a second uses a thread of its own.
//
// A timer is due when the calendar has reached its second, or when its interval has ended on the steady clock,
// whichever is first. So when the calendar is set forward, or advanced while the system slept, the timers whose second
// has passed fire within about five seconds. A calendar that is set back delays no timer.
//
// Threads: any thread may call every operation, also a dependent inside a notification, for any timer. A timer fires on
// a thread of the library; a timer that is due already may fire on a thread that starts, resets or stops some timer,
// before that call returns. So the caller of these operations holds no lock that a dependent of any timer needs.
// Dependents run without a lock of the library, one firing at a time; their exceptions are dropped.
//
// Lifetime: the destructor stops the timer and waits for a firing on another thread. A timer is not destroyed inside
// its own notification, since it is signalled after that. A class derived from KestTimer calls stop in its own
// destructor, since its overrides no longer exist when the base's destructor runs. At the exit of the process the
// library ends its timer threads; a firing under way gets 100 ms to end. After that, start and stop do nothing.
//
// Failure: timers fire on threads, and the first start of an idle process makes one. When no thread can be made, start
// and reset throw, the timer is stopped, and it keeps the new interval: a later reset tries again. After start has
// returned, the timer fires, even when no further thread can be made.
#pragma once

#include <atomic>
#include <cstdint>

#include "support/events.h"
#include "support/exceptions.h"
#include "support/export.h"

namespace KestSupport {

class KestTimer;

namespace internal {

/// The interval and the mode of a timer. The parts are normalised: the milliseconds are between -999 and 999.
struct alignas(8) TimerSetting {  // one word, so that an atomic of it needs no lock
    std::int32_t seconds = 0;
    std::int16_t milliseconds = 0;
    bool oneShot = false;
};

/// The entry of a timer in the list of the active timers. The lock of that list guards all members.
struct TimerEntry {
    explicit TimerEntry(KestTimer* timer = nullptr) noexcept : owner(timer) {}

    KestTimer* const owner;
    std::int64_t expirySeconds = 0;       // calendar time at which it is due
    std::int32_t expiryMilliseconds = 0;  // has no effect on the order
    std::int64_t deadline = 0;            // steady time, in nanoseconds, at which its interval ends
    std::uint64_t sequence = 0;           // grows with each insertion
    std::uint64_t pass = 0;               // the last dispatch pass that fired it
    std::uint64_t generation = 0;         // equal to the list's number when it is in the list
    std::uint32_t bucket = 0;
    TimerEntry* next = nullptr;
    TimerEntry* previous = nullptr;
};

}  // namespace internal

/// One timer. Its interval is the sum of seconds and milliseconds; either may be negative.
class KEST_SUPPORT_EXPORT KestTimer : public KestEvent {
  public:
    /// No interval, periodic, not started.
    KestTimer() noexcept;
    /// Sets the interval. The timer is not started; reset starts it.
    KestTimer(std::int32_t milliseconds, bool oneShot) noexcept;
    KestTimer(std::int32_t seconds, std::int32_t milliseconds, bool oneShot) noexcept;
    /// Deleted, because two numbers would mean milliseconds and a flag, not seconds and milliseconds.
    KestTimer(std::int32_t, std::int32_t) = delete;
    ~KestTimer() override;

    /// Starts the timer from now with its present interval and mode. It does not clear the signal. Throws as start.
    void reset() override;
    /// Starts the timer, or restarts it from now: once, or periodically until it is stopped. When neither part is
    /// above 0, the timer is stopped instead. An interval whose sum is negative is due at once. Does not wait for a
    /// firing under way on another thread. Throws KestException "KestTimer::start: Cannot create a thread that fires
    /// timers", code 0, with the timer stopped; never inside a firing. The first use of a timer in the process may
    /// throw std::bad_alloc; the timer is then unchanged.
    virtual void start(std::int32_t seconds, std::int32_t milliseconds, bool oneShot);
    virtual void start(std::int32_t milliseconds, bool oneShot);
    void start(std::int32_t, std::int32_t) = delete;
    /// Stops the timer. When another thread fires it, stop returns after that firing. Inside the timer's own
    /// notification stop returns at once, and the timer stays stopped.
    virtual void stop();
    /// Called at each firing, without a lock. When it returns false, the timer is started again.
    virtual bool isOneShot() const;

  private:
    friend class KestTimerManager;

    std::atomic<internal::TimerSetting> m_setting;  // written under the manager's list lock
    std::atomic<bool> m_registered{false};          // in the list or being fired; written under the manager's list lock
    internal::TimerEntry m_entry{this};
};

}  // namespace KestSupport
