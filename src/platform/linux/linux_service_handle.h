// What the two files of the services' inner contract share: descriptors in handles, and results of calls.
#pragma once

#include "platform/linux/linux_call.h"
#include "platform/services/system.h"

namespace KestSupport::platform {

inline int descriptorOf(const SystemHandle& handle) noexcept {
    return static_cast<int>(handle.native());
}

/// The outcome of a call that returns 0 on success.
inline ErrorCode outcomeOf(int result) noexcept {
    return result == 0 ? errorSuccess : systemFailure();
}

}  // namespace KestSupport::platform
