// The one place where a system call is made: it asks the seam, and it repeats a call that a signal interrupted.
#pragma once

#include <cerrno>

#include "platform/common/fault_seam.h"

namespace KestSupport::platform {

/// Runs a call that reports failure with -1 and errno, and repeats it when a signal interrupted it.
template <typename Call>
auto uninterrupted(Call&& call) noexcept -> decltype(call()) {
    for (;;) {
        const auto result = call();
        if (result != static_cast<decltype(call())>(-1) || errno != EINTR) return result;
    }
}

/// The same for a call whose failure matters.
template <typename Call>
auto systemCall(const char* name, Call&& call) noexcept -> decltype(call()) {
    if (const int error = injectedFault(name); error != 0) {
        errno = error;
        return static_cast<decltype(call())>(-1);
    }
    return uninterrupted(call);
}

/// Runs a call that returns its error number (the pthread family); 0 is success.
template <typename Call>
int errorCall(const char* name, Call&& call) noexcept {
    const int injected = injectedFault(name);
    return injected != 0 ? injected : call();
}

}  // namespace KestSupport::platform
