// Sleeping on a word of memory, for the locks and waits of the platform layer.
//
// Back end: both functions. A sleep that fails returns early, and each caller looks at its word again. So the fault
// seam does not concern them.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/deadline.h"

namespace KestSupport::platform {

using FutexWord = std::atomic<std::uint32_t>;
static_assert(sizeof(FutexWord) == 4 && FutexWord::is_always_lock_free);

inline constexpr int kAllSleepers = 1 << 30;

/// Sleeps while the word holds `expected`, until the deadline at most. May return early.
void futexWait(FutexWord& word, std::uint32_t expected, Deadline deadline = Deadline::never()) noexcept;

/// Wakes up to `count` sleepers. Uses only the address of the word, so the word may have been freed.
void futexWake(FutexWord* word, int count) noexcept;

}  // namespace KestSupport::platform
