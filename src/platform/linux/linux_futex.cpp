#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>

#include "platform/emulated/futex.h"
#include "platform/linux/linux_call.h"
#include "platform/linux/linux_sanitizers.h"

namespace KestSupport::platform {

void futexWait(FutexWord& word, std::uint32_t expected, Deadline deadline) noexcept {
    // ThreadSanitizer delays a signal until the thread returns from a call that the sanitizer does not know. So the
    // sleep is split.
    if constexpr (kSanitizerDefersSignals) deadline = std::min(deadline, Deadline::after(10));
    const timespec until = timeOf(deadline);
    syscall(SYS_futex, &word, FUTEX_WAIT_BITSET_PRIVATE, expected, deadline.isNever() ? nullptr : &until, nullptr,
            FUTEX_BITSET_MATCH_ANY);
}

void futexWake(FutexWord* word, int count) noexcept {
    syscall(SYS_futex, word, FUTEX_WAKE_PRIVATE, count, nullptr, nullptr, 0);
}

}  // namespace KestSupport::platform
