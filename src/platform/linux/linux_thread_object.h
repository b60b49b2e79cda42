// A thread made by createThread. Its handle and the running thread own it together. The last of both frees it.
//
//   phase        systemId        control            ends with
//   new          0 or awaited    0, 1 if suspended  the first steps of the thread
//   running      its id          0                  suspend: control + 1; terminate: kTerminating; the end of the entry
//   requested    its id          not 0              the next step outside a region and the C runtime
//   suspended    its id          not 0              resume: control - 1; terminate. hasStopped is 1
//   terminating  its id          kTerminating       a jump to exitPoint, the outermost frame of the thread
//   ended        its id          any                -; the word has kSignalled, exitCode is final
//
// In a forked child, a thread of the parent has ended, whatever its phase was: its `forks` differs from g_forks.
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
    std::atomic<pthread_t> native{};   // 0 until it is known; valid until joined
    std::atomic<bool> joining{false};  // a thread joins or has joined this one before its handle is closed
    FutexWord systemId{0};             // the kernel's thread id; 0 or kIdAwaited until the thread runs
    FutexWord control{0};              // the number of suspensions, and kTerminating; changed under the dispatcher lock
    FutexWord hasStopped{0};           // 1 while the thread is suspended
    std::atomic<bool> forced{false};   // stop the thread even inside the C runtime
    std::atomic<std::uint32_t> signalsHeard{0};
    std::atomic<std::uint32_t> exitCode{kStillActive};
    std::uint32_t terminationCode = 0;  // written before kTerminating
    bool closed = false;                // the handle is closed; guarded by the dispatcher lock
    bool inheritsSignal = false;        // the creator does not block the control signal
    bool inheritsScheduling = false;    // the creator has the scheduling of new threads
    sigjmp_buf exitPoint{};             // written and read by the thread
};

}  // namespace KestSupport::platform
