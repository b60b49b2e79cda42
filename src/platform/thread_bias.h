// What a lock needs that is one thread's own until another thread comes (sync/biased_guard.h). The owner goes in and
// out by plain stores; the newcomer, once, makes sure that it and the owner see each other's.
#pragma once

#include <cstdint>

namespace KestSupport::platform {

/// The calling thread, as a number that no other living thread of the process has; never 0 nor all ones. Asked for at
/// every taking of a lock, so it costs no more than a call.
std::uint32_t threadKey() noexcept;
/// The same, but the thread keeps it while its last destructors run. In a forked child the only thread has that of the
/// thread that forked.
std::uint32_t lifelongThreadKey() noexcept;
/// False when the thread has ended, and will not finish what it had begun.
bool threadMayRun(std::uint32_t key) noexcept;
/// When this returns, every other thread of the process has passed a full memory barrier, or has become visible with
/// all that it had stored when the call began. The second takes some milliseconds; it is the way when the system has
/// begun to refuse the first. No lock of the platform layer is held.
void barrierInAllThreads() noexcept;
/// True while the system gives the barrier: a lock may become one thread's own.
bool allThreadsCanBarrier() noexcept;

}  // namespace KestSupport::platform
