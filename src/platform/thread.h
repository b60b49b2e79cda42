// Native threads. The handle of a thread is a wait object (wait.h). It is signalled after the thread has ended and
// destroyed its thread-local objects. Closing the handle does not end the thread.
//
// Suspension and termination may stop a thread anywhere in its own code, also while it holds locks. They do not stop it
// inside the tables of the platform layer. As far as the back end can detect it, they also do not stop it inside the
// allocator of the C runtime or while it holds the lock of a standard output stream, so that other threads can
// continue. On Linux, a thread that stays in such code for 5 seconds is stopped there. On Windows, a request for a
// thread that stays in such code for 10 seconds fails, and the back end does not see the locks of streams that the
// program itself keeps; the library stays loaded after its first thread. Only threads made by createThread
// can be suspended and terminated.
//
// A new thread has the scheduling that the process had when it loaded the library, as far as the system permits. On
// Linux it can be suspended and terminated even if its creator blocks all signals. If it blocks the control signal
// itself, a request fails after 10 seconds, but takes effect when the thread can be reached again.
#pragma once

#include <cstdint>
#include <optional>

#include "platform/wait.h"

namespace KestSupport::platform {

/// The function of a new thread. Its result is the exit code.
using ThreadEntry = std::uint32_t (*)(void* argument);

inline constexpr std::uint32_t kStillActive = 259;  ///< the exit code of a running thread

/// Priorities, with the numbers of the platform that the library's interface was made for.
enum class ThreadPriority : std::int32_t {
    idle = -15,
    lowest = -2,
    belowNormal = -1,
    normal = 0,
    aboveNormal = 1,
    highest = 2,
    timeCritical = 15,
};

/// Called before the caller takes a lock under which it creates threads. On some systems the first thread needs the
/// lock of the loader, and a thread that unloads a library has that lock and may wait for the caller's.
void prepareForThreads() noexcept;
/// Creates a thread. Stores the handle in `handle` before the thread runs `entry`, and does not use `handle`
/// afterwards, so `entry` may free it. A suspended thread runs `entry` after resumeThread. Returns false, with a null
/// handle, if the system refuses.
bool createThread(ThreadEntry entry, void* argument, WaitHandle& handle, bool suspended = false) noexcept;
/// Adds one suspension, and returns when the thread has stopped. A thread may suspend itself. Returns false for a
/// thread that has ended or could not be reached.
bool suspendThread(WaitHandle thread) noexcept;
/// Removes one suspension. Returns false if there is none.
bool resumeThread(WaitHandle thread) noexcept;
/// Terminates the thread, suspended or not, and returns when it has ended. Its stack is not unwound, its destructors do
/// not run, and its mutexes become abandoned. A call for the calling thread does not return. Returns true for a thread
/// that had ended, which keeps its exit code, and false for a thread that could not be reached.
bool terminateThread(WaitHandle thread, std::uint32_t exitCode) noexcept;
/// Waits for the end of the thread for a few milliseconds at most, if the back end has a cheaper way to do so than
/// waitForMany. Returns whether the thread has ended.
bool endsSoon(WaitHandle thread) noexcept;
/// Announces that the calling thread is about to return from its entry. At the exit of the process and at the unload of
/// the library, the static destructors wait until all such threads have ended and destroyed their thread-local objects,
/// for at most 5 seconds. Does nothing on a thread that createThread did not make, nor on a system where the
/// library stays loaded and no other thread is left at that exit.
void leaveThread() noexcept;
/// Returns true while the process ends on a system that has ended all its other threads by then. No wait for a thread
/// succeeds any more.
bool otherThreadsAreGone() noexcept;
/// Returns false if the system refuses.
bool setThreadPriority(WaitHandle thread, ThreadPriority priority) noexcept;
/// Returns the result of the entry, the code of the termination, or 0 if the thread ended in another way. Returns
/// kStillActive before the end. Returns nothing for another handle.
std::optional<std::uint32_t> threadExitCode(WaitHandle thread) noexcept;

/// Returns the id of the calling thread, as the tools of the system show it: never 0, and the same for the whole life
/// of the thread.
std::uint32_t currentThreadId() noexcept;
/// Gives the calling thread a name for the tools of the system: the text in UTF-8, as much of it as the system takes
/// (on Linux 15 bytes).
void setThreadName(const char* name) noexcept;
/// Offers the processor to another thread.
void yieldThread() noexcept;
/// Sleeps at least for the given milliseconds; kInfinite is such a number too.
void sleepThread(std::uint32_t milliseconds) noexcept;

}  // namespace KestSupport::platform
