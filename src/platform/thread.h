// Native threads. A thread's handle is a wait object (wait.h) that is signalled when the thread has ended, its
// thread-local objects destroyed included. Closing the handle of a running thread leaves the thread running.
//
// Suspension and termination take a thread wherever it stands in its own code, its locks held. They never take it
// inside the platform layer's own tables nor, as far as can be told, inside the C runtime's allocator or while it holds
// the lock of a standard output stream, so that other threads can continue. A thread that stays there for 5 seconds
// is taken anyway. Only threads made here can be suspended and terminated.
//
// A new thread has the scheduling that the process had when it loaded the library, as far as the system permits, and
// can be suspended and terminated whatever signals its creator blocks. A thread that then makes itself unreachable (it
// blocks the signal) is given up after 10 seconds; the request takes effect when the thread can be reached again.
#pragma once

#include <cstdint>

#include "platform/wait.h"

namespace KestSupport::platform {

/// What a new thread runs; the result is its exit code.
using ThreadEntry = std::uint32_t (*)(void* argument);

inline constexpr std::uint32_t kStillActive = 259;  ///< the exit code of a thread that has not ended

/// Priorities, by the numbers of the platform that the library's interface was made for.
enum class ThreadPriority : std::int32_t {
    idle = -15,
    lowest = -2,
    belowNormal = -1,
    normal = 0,
    aboveNormal = 1,
    highest = 2,
    timeCritical = 15,
};

/// Makes a thread and stores its handle in handle before the thread runs entry; handle is not touched afterwards, so
/// entry may free it. A suspended thread runs entry after resumeThread. False, with handle null, when the system gives
/// no thread.
bool createThread(ThreadEntry entry, void* argument, WaitHandle& handle, bool suspended = false) noexcept;
/// Suspends once more (suspensions count) and returns when the thread stands still; the calling thread may suspend
/// itself. False for a thread that has ended, and for one that was given up.
bool suspendThread(WaitHandle thread) noexcept;
/// Takes back one suspension. False when there is none.
bool resumeThread(WaitHandle thread) noexcept;
/// Ends the thread where it stands, suspended or not, and returns when it has ended: nothing of its stack is unwound
/// and no destructor of it runs, mutexes that it owns are abandoned. A thread that terminates itself does not return.
/// True also for a thread that had ended already, which keeps its exit code; false for one that was given up.
bool terminateThread(WaitHandle thread, std::uint32_t exitCode) noexcept;
/// The calling thread is about to return from its entry. At the exit of the process and at the unload of the library,
/// the static destructors wait until all such threads, their thread-local objects included, have ended; for at most 5
/// seconds. No effect on a thread that was not made here.
void leaveThread() noexcept;
/// False when the system refuses.
bool setThreadPriority(WaitHandle thread, ThreadPriority priority) noexcept;
/// What entry returned, or the code that the thread was terminated with, or 0 when it left entry in another way;
/// kStillActive before that.
bool threadExitCode(WaitHandle thread, std::uint32_t& exitCode) noexcept;

/// The calling thread's id: the one that the system's tools show, never 0, the same for the thread's whole life.
std::uint32_t currentThreadId() noexcept;
/// Lets another thread run.
void yieldThread() noexcept;
/// Sleeps at least for the given milliseconds.
void sleepThread(std::uint32_t milliseconds) noexcept;

}  // namespace KestSupport::platform
