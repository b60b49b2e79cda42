// A store followed by a load of another word, where the load must not be done first, is what releasing a lock needs.
// The usual price is a locked instruction at every release. Where the kernel can run a barrier in all threads of the
// process, the rare other side pays it instead.
#pragma once

#include "platform/posix/posix_futex.h"
#include "platform/thread_bias.h"

namespace KestSupport::platform {

/// True when barrierInAllThreads works; settled when the library is loaded.
extern constinit std::atomic<bool> g_barrierWorks;

/// Stores with release order; a load that follows is not done before the store, as barrierInAllThreads's caller sees
/// it. Where that has no barrier for all threads, this has one.
inline void storeBeforeLoad(FutexWord& word, std::uint32_t value) noexcept {
    if (g_barrierWorks.load(std::memory_order_relaxed)) [[likely]] {
        word.store(value, std::memory_order_release);
        std::atomic_signal_fence(std::memory_order_seq_cst);
    } else {
        word.exchange(value, std::memory_order_seq_cst);
    }
}

}  // namespace KestSupport::platform
