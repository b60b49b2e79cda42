// Looking at a word again and again for a moment, which is cheaper than sleeping while another processor is about to
// change it. A spin never yields: on a busy machine that costs time slices of milliseconds, where a thread that sleeps
// runs again as soon as it is woken.
#pragma once

#include <atomic>
#include <thread>

namespace KestSupport::platform {

/// Tells the processor that this is a spin loop.
inline void spinPause() noexcept {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield" ::: "memory");
#endif
}

/// False on one processor: there the other thread does not run.
inline bool spinningPays() noexcept {
    static constinit std::atomic<unsigned> processors{0};  // 0 until they are counted
    unsigned count = processors.load(std::memory_order_relaxed);
    if (count == 0) {
        count = std::thread::hardware_concurrency() > 1 ? 2 : 1;
        processors.store(count, std::memory_order_relaxed);
    }
    return count > 1;
}

/// Calls attempt, with a pause before each call, until it returns true or has been called so often.
template <typename Attempt>
bool spinUntil(unsigned attempts, const Attempt& attempt) noexcept {
    for (; attempts > 0; --attempts) {
        spinPause();
        if (attempt()) return true;
    }
    return false;
}

}  // namespace KestSupport::platform
