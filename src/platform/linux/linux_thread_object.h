// A thread made by createThread. It belongs to its handle and to the running thread; the later of both frees it.
//
//   phase        systemId        control            left by
//   made         0 or awaited    0, 1 if suspended  the thread's first steps
//   running      its id          0                  suspend: control + 1; terminate: kTerminating; its end
//   asked        its id          not 0              its next step outside a region and the C runtime
//   suspended    its id          not 0              resume: control - 1; terminate. standsStill is 1
//   terminating  its id          kTerminating       a jump to exitPoint, the thread's outermost frame
//   ended        its id          any                -; the word has kSignalled, exitCode is final
//
// In a forked child a thread of the parent has ended, whatever its phase was: `forks` tells.
#pragma once

#include <pthread.h>

#include <csetjmp>

#include "platform/emulated/wait_object.h"
#include "platform/thread.h"

namespace KestSupport::platform {

class ThreadObject : public WaitObject {
  public:
    static constexpr std::uint32_t kTerminating = 1U << 31;
    static constexpr std::uint32_t kIdAwaited = 1U << 31;

    ThreadObject(ThreadEntry threadEntry, void* threadArgument) noexcept
        : WaitObject(Kind::thread), entry(threadEntry), argument(threadArgument) {
        forks = g_forks;
    }

    const ThreadEntry entry;
    void* const argument;
    sigjmp_buf exitPoint{};           // the thread's own
    std::atomic<pthread_t> native{};  // valid until joined or detached
    FutexWord systemId{0};            // the kernel's thread id; 0 or kIdAwaited until the thread runs
    FutexWord control{0};             // how often suspended, and kTerminating; changed under the dispatcher lock
    FutexWord standsStill{0};         // 1 while the thread is suspended
    std::atomic<bool> forced{false};  // take the thread even inside the C runtime
    std::atomic<std::uint32_t> signalsHeard{0};
    std::atomic<std::uint32_t> exitCode{kStillActive};
    std::uint32_t terminationCode = 0;  // set before kTerminating
    bool closed = false;                // guarded by the dispatcher lock: the handle is closed
};

}  // namespace KestSupport::platform
