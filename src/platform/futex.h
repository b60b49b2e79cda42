// Sleeping on a word of memory, for the locks and waits of the platform layer.
//
// Back end: both calls. A failed sleep is one that returns early, so they are not behind the fault seam: each caller
// looks at its word again.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/deadline.h"

namespace KestSupport::platform {

using FutexWord = std::atomic<std::uint32_t>;
static_assert(sizeof(FutexWord) == 4 && FutexWord::is_always_lock_free);

inline constexpr int kAllSleepers = 1 << 30;

/// Sleeps while the word holds `expected`, until the deadline. May return early.
void futexWait(FutexWord& word, std::uint32_t expected, Deadline deadline = Deadline::never()) noexcept;

/// Wakes up to `count` sleepers. Only the word's address is used, so the word may have been freed.
void futexWake(FutexWord* word, int count) noexcept;

}  // namespace KestSupport::platform
