// Requests to end this program, which are delayed until the program has undone what it must.
//
// Threads: for a program without console handlers (console.h). An Interruption belongs to the thread that makes it.
// That thread starts the other threads of the program during the lifetime of the object.
#pragma once

#include <cstdint>
#include <memory>

namespace KestSupport::platform {

/// During its lifetime, a request to end (Ctrl+C, a supervisor, the loss of the terminal; with a POSIX back end SIGINT,
/// SIGTERM and SIGHUP) is only reported by wait. A request that this program ignores stays ignored. The destructor runs
/// the usual effect of a request that was not reported.
class Interruption {
  public:
    Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;
    ~Interruption();

    /// Waits at most `timeout` milliseconds for a request; 0 does not wait. Returns its number, for takeEffect, or 0 if
    /// there was none. Returns each request once.
    int wait(std::uint32_t timeout) noexcept;

    /// Runs the usual effect of a request, which ends the program. Called after the destruction of the object.
    static void takeEffect(int request) noexcept;

  private:
    struct State;
    const std::unique_ptr<State> m_state;
};

}  // namespace KestSupport::platform
