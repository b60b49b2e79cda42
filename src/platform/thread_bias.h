// The functions that a biased lock needs (sync/biased_guard.h). Such a lock belongs to one thread, which takes and
// releases it by plain stores, until a second thread comes. The second thread calls barrierInAllThreads once, so that
// both threads see each other's stores.
#pragma once

#include <cstdint>

namespace KestSupport::platform {

#if defined(__ELF__)
/// The key of the calling thread, or 0 until the thread calls makeThreadKey. Each acquisition of a lock reads it:
/// without a call for that, a value is written to a buffer stream in 3.5 instead of 4.3 ns (bench/object_streams).
extern constinit thread_local std::uint32_t t_threadKey [[gnu::tls_model("initial-exec")]];
std::uint32_t makeThreadKey() noexcept;
/// Returns a number of the calling thread that no other living thread of the process has; never 0 or all ones.
inline std::uint32_t threadKey() noexcept {
    const std::uint32_t key = t_threadKey;
    return key != 0 ? key : makeThreadKey();
}
#else
std::uint32_t threadKey() noexcept;
#endif
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
