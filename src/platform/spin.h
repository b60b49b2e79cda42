// Polling for a moment, which is cheaper than sleeping if another processor is about to change a word: a round trip
// between two threads takes 1 to 2 us instead of 11 us with sleeps, and 50 us if the sleeps let a processor of a
// virtual machine halt (bench/events). A spin never yields. A yield on a busy machine can cost several time slices of
// milliseconds, but a sleeping thread runs as soon as it is woken.
#pragma once

#include <atomic>
#include <cstdint>

namespace KestSupport::platform {

/// Marks a spin loop for the processor.
inline void spinPause() noexcept {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield" ::: "memory");
#endif
}

namespace internal {
extern constinit std::atomic<unsigned> g_pausesPerMicrosecond;  // kNotMeasured until the first spin
inline constexpr unsigned kNotMeasured = ~0U;
unsigned measurePauses() noexcept;
}  // namespace internal

/// Returns the number of pauses that take this time. A pause takes 10 to 60 ns, depending on the processor. Returns 0
/// if there is one processor, where the other thread cannot run.
inline unsigned pausesFor(unsigned nanoseconds) noexcept {
    unsigned perMicrosecond = internal::g_pausesPerMicrosecond.load(std::memory_order_relaxed);
    if (perMicrosecond == internal::kNotMeasured) [[unlikely]]
        perMicrosecond = internal::measurePauses();
    return nanoseconds * perMicrosecond / 1000;
}

/// Calls `attempt`, after a pause each, until it returns true or has been called `attempts` times. Returns whether it
/// returned true.
template <typename Attempt>
bool spinUntil(unsigned attempts, const Attempt& attempt) noexcept {
    for (; attempts > 0; --attempts) {
        spinPause();
        if (attempt()) return true;
    }
    return false;
}

/// The same with growing gaps between the calls: `gap` pauses before the first one, twice as many before each next one,
/// up to `longestGap`, and `pauses` in all. A word that other threads write all the time is disturbed less often.
template <typename Attempt>
bool spinWithGaps(unsigned pauses, unsigned gap, unsigned longestGap, const Attempt& attempt) noexcept {
    while (pauses > 0) {
        const unsigned now = gap < pauses ? gap : pauses;
        for (unsigned i = 0; i < now; ++i)
            spinPause();
        if (attempt()) return true;
        pauses -= now;
        gap = gap < longestGap / 2 ? gap * 2 : longestGap;
    }
    return false;
}

/// Polls until `progress` has reached `wanted`. Returns false if that takes longer than the time.
inline bool spinUntilReached(const std::atomic<std::uint64_t>& progress, std::uint64_t wanted,
                             unsigned nanoseconds) noexcept {
    return spinUntil(pausesFor(nanoseconds), [&] { return progress.load(std::memory_order_acquire) >= wanted; });
}

}  // namespace KestSupport::platform
