// The functions that a biased lock needs (sync/biased_guard.h). Such a lock belongs to one thread, which takes and
// releases it by plain stores, until a second thread comes. The second thread calls barrierInAllThreads once, so that
// both threads see each other's stores.
#pragma once

#include <cstdint>

namespace KestSupport::platform {

/// Returns a number of the calling thread that no other living thread of the process has; never 0 or all ones. It costs
/// as little as a call, since each acquisition of a lock asks for it.
std::uint32_t threadKey() noexcept;
/// The same, but the thread keeps the number while its last destructors run. In a forked child, the only thread has the
/// number of the thread that forked.
std::uint32_t lifelongThreadKey() noexcept;
/// Returns false if the thread has ended and will not continue what it began.
bool threadMayRun(std::uint32_t key) noexcept;
/// After the return, every other thread of the process has run a full memory barrier, or all that it had stored before
/// the call is visible. The second way takes some milliseconds; it is used after the system has begun to refuse the
/// first one. The caller holds no lock of the platform layer.
void barrierInAllThreads() noexcept;
/// Returns whether the system runs such barriers, so that a lock may belong to one thread.
bool allThreadsCanBarrier() noexcept;

}  // namespace KestSupport::platform
