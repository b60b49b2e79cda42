// Requests that this program end, held back while it has something to undo first.
//
// Threads: for a program that adds no console handlers (console.h). The object belongs to the thread that makes it; the
// program's other threads are started by that thread while the object lives.
#pragma once

#include <cstdint>
#include <memory>

namespace KestSupport::platform {

/// While it lives, a request to end (Ctrl+C, a supervisor's request, the loss of the terminal; with a POSIX back end
/// SIGINT, SIGTERM and SIGHUP) has no effect but that wait reports it. A request that this program ignores stays
/// ignored. One that was not reported has its usual effect at the end of the object.
class Interruption {
  public:
    Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;
    ~Interruption();

    /// Waits at most so many milliseconds for a request; 0 asks. Returns its number, for takeEffect; 0 when none came.
    int wait(std::uint32_t timeout) noexcept;

    /// Lets a request have its usual effect, which is the end of the program. After the object's end.
    static void takeEffect(int request) noexcept;

  private:
    struct State;
    const std::unique_ptr<State> m_state;
};

}  // namespace KestSupport::platform
