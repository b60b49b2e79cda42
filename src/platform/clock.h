// The steady clock, which no clock change moves: its exact time, and its time as of the last tick, for those who read
// it too often for the exact one. Any thread.
#pragma once

#include <cstdint>

namespace KestSupport::platform {

/// Nanoseconds since a point that stays the same while the system runs.
std::int64_t steadyTime() noexcept;

/// The same clock, behind steadyTime by less than kCoarseLag on a machine that is not overloaded; several times
/// cheaper.
std::int64_t coarseSteadyTime() noexcept;

inline constexpr std::int64_t kCoarseLag = 16'000'000;  ///< nanoseconds

}  // namespace KestSupport::platform
