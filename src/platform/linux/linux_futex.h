// Sleeping on a word of memory. The calls are not behind the seam: a futex call that fails is one that returns at once,
// and every caller looks at its word again.
#pragma once

#include <linux/futex.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>

#include "platform/deadline.h"

namespace KestSupport::platform {

using FutexWord = std::atomic<std::uint32_t>;
static_assert(sizeof(FutexWord) == 4 && FutexWord::is_always_lock_free);

#if defined(__SANITIZE_THREAD__)
inline constexpr bool kSanitizerDefersSignals = true;
#elif defined(__has_feature)
inline constexpr bool kSanitizerDefersSignals = __has_feature(thread_sanitizer);
#else
inline constexpr bool kSanitizerDefersSignals = false;
#endif

/// Sleeps while word holds expected, until the deadline. May return early.
inline void futexWait(FutexWord& word, std::uint32_t expected, Deadline deadline = Deadline::never()) noexcept {
    // ThreadSanitizer keeps a signal back until the thread leaves a call that the sanitizer does not know to block.
    if constexpr (kSanitizerDefersSignals) deadline = std::min(deadline, Deadline::after(10));
    // Like the steady clock, the call counts the nanoseconds of CLOCK_MONOTONIC.
    const timespec until{static_cast<time_t>(deadline.time() / 1'000'000'000),
                         static_cast<long>(deadline.time() % 1'000'000'000)};
    syscall(SYS_futex, &word, FUTEX_WAIT_BITSET_PRIVATE, expected, deadline.isNever() ? nullptr : &until, nullptr,
            FUTEX_BITSET_MATCH_ANY);
}

/// Wakes up to count sleepers. The word need not exist any more: only its address is used.
inline void futexWake(FutexWord* word, int count) noexcept {
    syscall(SYS_futex, word, FUTEX_WAKE_PRIVATE, count, nullptr, nullptr, 0);
}

/// Tells the processor that this is a spin loop.
inline void spinPause() noexcept {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield" ::: "memory");
#endif
}

/// Spinning only helps while the other thread runs on another processor.
inline bool spinningPays() noexcept {
    static constinit std::atomic<int> processors{0};  // 0 until they were counted
    int count = processors.load(std::memory_order_relaxed);
    if (count == 0) {
        count = sysconf(_SC_NPROCESSORS_ONLN) > 1 ? 2 : 1;
        processors.store(count, std::memory_order_relaxed);
    }
    return count > 1;
}

}  // namespace KestSupport::platform
