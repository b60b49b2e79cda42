// What the two files of the services' inner contract share: descriptors in handles, and errno in results.
#pragma once

#include <cerrno>

#include "platform/services/system.h"

namespace KestSupport::platform {

inline int descriptorOf(const SystemHandle& handle) noexcept {
    return static_cast<int>(handle.native());
}

inline Failure lastFailure() noexcept {
    return {errorFromErrno(errno)};
}

/// The outcome of a call that returns 0 on success.
inline ErrorCode outcomeOf(int result) noexcept {
    return result == 0 ? errorSuccess : lastFailure();
}

}  // namespace KestSupport::platform
