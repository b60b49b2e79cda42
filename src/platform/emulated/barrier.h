// A store followed by a load of another word, where the processor must not run the load first. The release of a lock
// needs this. The usual price is a locked instruction in every release. If the kernel can run a barrier in all threads
// of the process, the rare other side calls it instead: a free mutex costs 11 ns instead of 13 ns for a
// std::recursive_mutex (bench/internal, locks/platform mutex free).
//
// The kernel may begin to refuse the barrier, for example if a filter for system calls is installed. After the first
// refusal every storeBeforeLoad runs its own barrier. A storeBeforeLoad that began before may still run its load too
// early. But a processor completes its stores within microseconds, or when it switches threads. So the other side looks
// again after kDrainTime, and finds what that thread stored.
#pragma once

#include "platform/emulated/futex.h"
#include "platform/thread_bias.h"

namespace KestSupport::platform {

/// Milliseconds after which every store of any processor is visible. Microseconds would do.
inline constexpr std::uint32_t kDrainTime = 10;

/// True while the kernel runs the barrier. Set when the library is loaded.
extern constinit std::atomic<bool> g_barrierWorks;

/// Runs a full barrier in all threads of the process. Returns false if a thread may be in storeBeforeLoad without one:
/// the caller looks again after kDrainTime.
bool requestBarrier() noexcept;
/// Returns whether requestBarrier may have returned false since the library was loaded.
bool barrierWasRefused() noexcept;

/// Stores with release order. A thread that has called requestBarrier does not see a later load of the calling thread
/// before the store.
inline void storeBeforeLoad(FutexWord& word, std::uint32_t value) noexcept {
    if (g_barrierWorks.load(std::memory_order_relaxed)) [[likely]] {
        word.store(value, std::memory_order_release);
        std::atomic_signal_fence(std::memory_order_seq_cst);
    } else {
        word.exchange(value, std::memory_order_seq_cst);
    }
}

}  // namespace KestSupport::platform
