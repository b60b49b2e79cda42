// What a lock needs that is one thread's own until another thread comes (sync/biased_guard.h). The owner goes in and
// out by plain stores; the newcomer, once, makes sure that it and the owner see each other's.
#pragma once

#include <cstdint>

namespace KestSupport::platform {

/// The calling thread, as a number that no other living thread of the process has; never 0 nor all ones. Asked for at
/// every taking of a lock, so it costs no more than a call.
std::uint32_t threadKey() noexcept;
/// False when the thread has ended, and will not finish what it had begun.
bool threadMayRun(std::uint32_t key) noexcept;
/// Every thread of the process passes a full memory barrier before this returns. Where allThreadsCanBarrier is false it
/// is a barrier of the calling thread alone.
void barrierInAllThreads() noexcept;
bool allThreadsCanBarrier() noexcept;

}  // namespace KestSupport::platform
