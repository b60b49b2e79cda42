// A store followed by a load of another word, where the load must not be done first, is what releasing a lock needs.
// The usual price is a locked instruction at every release. Where the kernel can run a barrier in all threads of the
// process, the rare other side pays it instead.
//
// The kernel may begin to refuse the barrier while the process runs (a filter on system calls is installed). From the
// first refusal on every storeBeforeLoad has a barrier of its own. One that had begun before may still do its load too
// early; but a processor finishes its stores within microseconds, or when it changes to another thread. So the other
// side looks once more after kDrainTime, and finds what that thread stored.
#pragma once

#include "platform/futex.h"
#include "platform/thread_bias.h"

namespace KestSupport::platform {

/// Milliseconds in which every store that any processor had begun has become visible; ample.
inline constexpr std::uint32_t kDrainTime = 10;

/// True while the kernel gives the barrier; the first time settled when the library is loaded.
extern constinit std::atomic<bool> g_barrierWorks;

/// Asks for a full barrier in all threads of the process. False when a thread may be in storeBeforeLoad without one:
/// the caller looks again after kDrainTime at what such a thread may have stored.
bool requestBarrier() noexcept;
/// True when requestBarrier may have returned false since the library was loaded.
bool barrierWasRefused() noexcept;

/// Stores with release order; a load that follows is not done before the store, as a thread sees it that called
/// requestBarrier. Where that has no barrier for all threads, this has one.
inline void storeBeforeLoad(FutexWord& word, std::uint32_t value) noexcept {
    if (g_barrierWorks.load(std::memory_order_relaxed)) [[likely]] {
        word.store(value, std::memory_order_release);
        std::atomic_signal_fence(std::memory_order_seq_cst);
    } else {
        word.exchange(value, std::memory_order_seq_cst);
    }
}

}  // namespace KestSupport::platform
