// Waits for a service: for a call of the manager, and for a state. The user's time-out limits the wait for a state;
// time within calls is not counted.
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
    bool waits = true;    ///< false: return without waiting for the state
    bool forces = false;  ///< kill a service that does not stop
    /// The time-out. Default: 30 seconds, or the longest wait hint of the service if that is more, at most ten minutes.
    std::optional<std::uint32_t> seconds;
};

/// One wait. It begins with the construction of the object. For one thread.
class Wait {
  public:
    /// Called when this program is asked to end. It makes a pending call return.
    using Cancel = std::function<void()>;

    /// With `cancel`, a request to end does not end this program at once: call and pause run `cancel` and throw
    /// Interrupted.
    Wait(const Task& task, const SharedHandle& service, const Patience& patience, Cancel cancel = nullptr);

    /// Returns the service's status. A service that does not exist counts as stopped: one that is marked for deletion
    /// is deleted when it stops. Throws a Failure.
    ServiceStatus queryStatus();

    /// Makes the call, which may take long, and returns its result. The time-out does not count this time.
    ErrorCode call(std::function<ErrorCode()> work);

    /// Sleeps, starting at 50 ms and doubling up to 500 ms while the service makes no progress. Throws a Failure with
    /// the service's state at the time-out.
    void pause();

    /// The process id in the last status; 0 without a process.
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
    Clock::time_point m_lastProgress = m_begin;  // the last change of the state or the check point
    Clock::duration m_inCalls{0};
    ServiceStatus m_seen;  // the last status
    Milliseconds m_longestHint{0};
    Milliseconds m_step{0};
    Progress m_progress;
};

}  // namespace kestsc
