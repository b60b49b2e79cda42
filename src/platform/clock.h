// Two clocks. No change of the system's time moves the steady clock. The calendar clock may be set forward and back.
// Each has an exact time and the cheaper time of the last tick. Any thread may call these functions.
#pragma once

#include <atomic>
#include <cstdint>

namespace KestSupport::platform {

/// Returns the nanoseconds since a point that stays the same while the system runs. The time in which the system is
/// suspended does not count.
std::int64_t steadyTime() noexcept;

/// The same clock at its last tick: late by less than kCoarseLag on a machine that is not overloaded, and several times
/// cheaper.
std::int64_t coarseSteadyTime() noexcept;

inline constexpr std::int64_t kCoarseLag = 16'000'000;  ///< nanoseconds

/// Returns the nanoseconds since 1970-01-01 00:00:00 UTC.
std::int64_t calendarTime() noexcept;

/// Returns the whole seconds of calendarTime at the last tick, so never more than those of calendarTime.
std::int64_t coarseCalendarSeconds() noexcept;

namespace internal {
inline std::atomic<std::int64_t> g_calendarStep{0};  // seconds, added to the system's clock
inline std::atomic<std::int64_t> g_steadyStep{0};
}  // namespace internal

/// For tests: moves the clocks of this process by the given seconds. A wait that has begun keeps its real length.
inline void stepClocks(std::int64_t calendarSeconds, std::int64_t steadySeconds) noexcept {
    internal::g_calendarStep += calendarSeconds;
    internal::g_steadyStep += steadySeconds;
}

}  // namespace KestSupport::platform
