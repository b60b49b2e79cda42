// What the processor can do.
//
// __builtin_cpu_supports is not used: it would ask the processor about everything whenever the library is loaded, which
// takes 80 us in a virtual machine (scripts/bench weight).
#pragma once

#include <atomic>

namespace KestSupport::platform {

enum class Answer : unsigned char { unknown, no, yes };

extern constinit std::atomic<Answer> g_wideVectors;

/// Asks the processor and remembers the answer.
bool askForWideVectors() noexcept;

/// Returns whether code for vectors of 32 bytes (AVX2) can run.
inline bool hasWideVectors() noexcept {
    const Answer known = g_wideVectors.load(std::memory_order_relaxed);
    return known == Answer::unknown ? askForWideVectors() : known == Answer::yes;
}

}  // namespace KestSupport::platform
