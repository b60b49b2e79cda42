// The C runtime's conversions between instants and broken-down times, in the local zone and in UTC.
//
// Instants are seconds since 1970-01-01 00:00:00 UTC. The environment variable TZ names the local zone; without TZ it
// is the system's zone. Several threads may call these functions concurrently while no thread changes the environment.
#pragma once

#include <cstdint>
#include <ctime>

namespace KestSupport::platform {

/// Returns the number of the local zone. The same text of TZ has the same number, and different texts have different
/// numbers. Without TZ, the number identifies the rules of the system's zone at the library's latest look. Returns 0 if
/// the process has seen too many zones; all numbers are below 4096. The call is cheap while the environment stays the
/// same: on Linux it costs a few loads.
std::uint32_t localZone();

/// The same, but looks at the system's zone first if TZ is not set, and lets the runtime use that zone. Called before
/// conversions of the runtime, so that all of them use the zone, or the rules, that have the number. A back end may
/// look at the system's zone once a second.
std::uint32_t localZoneOfNow();

/// Stores the fields of an instant in the local zone, with the zone name if the runtime has a member for it. Returns
/// false if the runtime cannot represent it; the fields then have any values.
bool localTime(std::int64_t instant, std::tm& result) noexcept;

/// The same in UTC.
bool utcTime(std::int64_t instant, std::tm& result) noexcept;

/// Returns the instant of a local time. The members may be outside their ranges and are normalised in place. On entry,
/// tm_isdst says whether daylight saving time is in effect (above 0), is not (0) or is unknown (below 0). Returns -1 if
/// the runtime cannot represent the time.
std::int64_t instantOfLocalTime(std::tm& fields) noexcept;

}  // namespace KestSupport::platform
