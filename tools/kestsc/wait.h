// Waiting for a service: for a call of the manager that takes its time, and for a state. The user's patience bounds
// both together.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>

#include "failure.h"
#include "manager.h"
#include "platform/interruption.h"
#include "progress.h"
#include "words.h"

namespace kestsc {

struct Patience {
    bool waits = true;    ///< false: for no state
    bool forces = false;  ///< a service that does not stop is killed
    /// Without it 30 seconds, or the longest wait hint of the service when that is more, ten minutes at most.
    std::optional<std::uint32_t> seconds;
};

/// One wait, which begins with the object's construction. For one thread.
class Wait {
  public:
    /// What is to be done when this program is asked to end, so that a call under way returns.
    using Cancel = std::function<void()>;

    /// With `cancel`, a request to end is held back: it throws Interrupted, out of call and pause, after `cancel`.
    Wait(const Task& task, const SharedHandle& service, const Patience& patience, Cancel cancel = nullptr);

    /// The service's status; stopped for one that is gone, as a service that was marked for deletion is when it has
    /// stopped. Throws a Failure.
    ServiceStatus look();

    /// Makes the call, which may take its time, and gives its result. Does not use patience up.
    ErrorCode call(std::function<ErrorCode()> work);

    /// Sleeps, starting at 50 ms and doubling up to 500 ms while the service makes no progress. Throws the Failure of a
    /// time-out, with the state that the service is in, when patience is at its end.
    void pause();

    /// The process of the service, as it was last seen; 0 without one.
    std::uint32_t process() const { return m_seen.processId; }

  private:
    using Clock = std::chrono::steady_clock;
    using Milliseconds = std::chrono::milliseconds;

    Milliseconds limit() const;
    Milliseconds left() const;
    void note(const ServiceStatus& status);
    int askForEnd(Milliseconds time);
    void showProgress();
    [[noreturn]] void giveUp();

    const Task m_task;
    const SharedHandle m_service;
    const Patience m_patience;
    const Cancel m_cancel;
    std::optional<KestSupport::platform::Interruption> m_held;
    const Clock::time_point m_begin = Clock::now();
    Clock::time_point m_gotOn = m_begin;  // when the state or the check point last changed
    Clock::duration m_inCalls{0};
    ServiceStatus m_seen;  // what was seen last
    Milliseconds m_longestHint{0};
    Milliseconds m_step{0};
    Progress m_progress;
};

}  // namespace kestsc
