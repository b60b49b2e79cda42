// Waiting for a service: for a call of the manager that takes its time, and for a state. The user's patience bounds
// both together.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>

#include "failure.h"
#include "manager.h"
#include "progress.h"
#include "words.h"

namespace kestsc {

struct Patience {
    bool waits = true;  ///< false: for no state
    /// Without it 30 seconds, or the longest wait hint of the service when that is more, ten minutes at most.
    std::optional<std::uint32_t> seconds;
};

/// One wait, which begins with the object's construction. For one thread.
class Wait {
  public:
    Wait(const Task& task, const SharedHandle& service, const Patience& patience);

    /// The service's status; stopped for one that is gone, as a service that was marked for deletion is when it has
    /// stopped. Throws a Failure.
    ServiceStatus look();

    /// Makes the call, which may take its time, and gives its result. Does not use patience up.
    ErrorCode call(std::function<ErrorCode()> work);

    /// Sleeps for a short while; less short, up to half a second, the longer the service has not got on. Throws the
    /// Failure of a time-out, with the state that the service is in, when patience is at its end.
    void pause();

  private:
    using Clock = std::chrono::steady_clock;
    using Milliseconds = std::chrono::milliseconds;

    Milliseconds limit() const;
    Milliseconds left() const;
    void note(const ServiceStatus& status);
    void showProgress();
    [[noreturn]] void giveUp();

    const Task m_task;
    const SharedHandle m_service;
    const Patience m_patience;
    const Clock::time_point m_begin = Clock::now();
    Clock::time_point m_gotOn = m_begin;  // when the state or the check point last changed
    Clock::duration m_inCalls{0};
    ServiceStatus m_seen;  // what was seen last
    Milliseconds m_longestHint{0};
    Milliseconds m_step{0};
    Progress m_progress;
};

}  // namespace kestsc
