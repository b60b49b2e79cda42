// System calls. They call the fault seam first and are repeated when a signal interrupts them.
#pragma once

#include <time.h>

#include <cerrno>

#include "platform/common/fault_seam.h"
#include "platform/deadline.h"
#include "platform/result.h"

namespace KestSupport::platform {

/// Runs a call that reports failure with -1 and errno. Repeats it while signals interrupt it.
template <typename Call>
auto uninterrupted(Call&& call) noexcept -> decltype(call()) {
    for (;;) {
        const auto result = call();
        if (result != static_cast<decltype(call())>(-1) || errno != EINTR) return result;
    }
}

/// The same for a call whose failure matters. `step` is its name at the seam.
template <typename Call>
auto systemCall(const char* step, Call&& call) noexcept -> decltype(call()) {
    if (const int error = injectedFault(step); error != 0) {
        errno = error;
        return static_cast<decltype(call())>(-1);
    }
    return uninterrupted(call);
}

/// The same for a call of the pthread family, which returns 0 or its error number.
template <typename Call>
int errorCall(const char* step, Call&& call) noexcept {
    const int injected = injectedFault(step);
    return injected != 0 ? injected : call();
}

/// Returns the time of a deadline, for calls that take one of CLOCK_MONOTONIC. That is the steady clock.
inline timespec timeOf(Deadline deadline) noexcept {
    constexpr Deadline::Time kSecond = 1000 * Deadline::kMillisecond;
    return {deadline.time() / kSecond, deadline.time() % kSecond};
}

/// Why the last system call failed.
inline Failure systemFailure() noexcept {
    return {errorFromErrno(errno)};
}

}  // namespace KestSupport::platform
