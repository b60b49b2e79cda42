// The public waits for several objects: their results, and the mapping from those of platform/wait.h.
//
//   waitForSet  waits for any or all of the handles of a set
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "platform/wait.h"

namespace KestSupport::internal {

inline constexpr int kSetSignalled = 0;
inline constexpr int kSetFailed = -1;
inline constexpr int kSetTimedOut = -2;

/// Waits for the handles handleAt(0) to handleAt(count - 1), for up to `timeout` milliseconds, without limit for -1.
/// Returns kSetSignalled for all, the lowest index of a signalled handle for any, kSetTimedOut or kSetFailed. An empty
/// set, a larger one than the platform can wait for and one with a null handle fail. Calls handleAt at most once for
/// each index, and only when the set is not too large. Allocates nothing.
template <typename HandleAt>
int waitForSet(std::size_t count, HandleAt handleAt, bool all, int timeout) {
    std::array<platform::WaitHandle, platform::kMaximumWaitObjects> handles{};
    if (count > handles.size()) return kSetFailed;
    for (std::size_t i = 0; i < count; ++i)
        handles[i] = handleAt(i);
    const std::uint32_t result =
        platform::waitForMany({handles.data(), count}, all, static_cast<std::uint32_t>(timeout));
    if (result == platform::kWaitFailed) return kSetFailed;
    if (result == platform::kWaitTimeout) return kSetTimedOut;
    return all ? kSetSignalled : static_cast<int>(result);
}

}  // namespace KestSupport::internal
