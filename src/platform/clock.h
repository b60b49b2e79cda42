// Two clocks: the steady one, which no change of the clock moves, and the calendar, which may be set forward and back.
// Each has its exact time and its time at the last tick, for callers that read it too often for the exact one. Any
// thread.
#pragma once

#include <atomic>
#include <cstdint>

namespace KestSupport::platform {

/// Nanoseconds since a point that stays the same while the system runs. A suspended system does not count.
std::int64_t steadyTime() noexcept;

/// The same clock, behind steadyTime by less than kCoarseLag on a machine that is not overloaded; several times
/// cheaper.
std::int64_t coarseSteadyTime() noexcept;

inline constexpr std::int64_t kCoarseLag = 16'000'000;  ///< nanoseconds

/// Nanoseconds of the calendar since the beginning of 1970 in UTC.
std::int64_t calendarTime() noexcept;

/// Its whole seconds at the last tick, so never ahead of calendarTime.
std::int64_t coarseCalendarSeconds() noexcept;

namespace internal {
inline std::atomic<std::int64_t> g_calendarStep{0};  // seconds added to what the system's clock shows
inline std::atomic<std::int64_t> g_steadyStep{0};
}  // namespace internal

/// For tests: moves the clocks of this process by the given seconds. A wait that has begun keeps its real length.
inline void stepClocks(std::int64_t calendarSeconds, std::int64_t steadySeconds) noexcept {
    internal::g_calendarStep += calendarSeconds;
    internal::g_steadyStep += steadySeconds;
}

}  // namespace KestSupport::platform
