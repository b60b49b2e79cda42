// Which objects a wait for several takes.
#pragma once

#include <algorithm>

#include "platform/wait.h"

namespace KestSupport::platform {

/// Returns whether the arguments of waitForMany are valid. An object that a wait for all names twice could never be
/// taken twice.
inline bool canWaitFor(std::span<const WaitHandle> objects, bool all) noexcept {
    if (objects.empty() || objects.size() > kMaximumWaitObjects) return false;
    for (auto each = objects.begin(); each != objects.end(); ++each) {
        if (*each == nullptr || (all && std::find(objects.begin(), each, *each) != each)) return false;
    }
    return true;
}

}  // namespace KestSupport::platform
