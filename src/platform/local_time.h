// The C runtime's conversions between instants and broken-down times, in the local zone and in UTC.
//
// Instants are seconds since 1970-01-01 00:00:00 UTC. The local zone is the one that the environment variable TZ names,
// or the system's own without it. All calls may be made by several threads at once, as long as none of them changes the
// environment meanwhile.
#pragma once

#include <cstdint>
#include <ctime>

namespace KestSupport::platform {

/// The number of the local zone: the same for the same text of TZ, however often it changes in between, different for
/// different texts. Without TZ it is the number of the state that the system's own zone file had when the library
/// looked at it last. 0 when there have been too many zones to be told apart; below 4096. The runtime uses that zone
/// from now on. It costs a few loads as long as the environment stays the same.
std::uint32_t localZone();

/// The same after a look at the system's own zone file if TZ is not set. Called before conversions of the runtime, so
/// that all of them use the file in the state that has the number.
std::uint32_t localZoneOfNow();

/// Breaks an instant down in the local zone, zone name included where the runtime keeps one in the structure. False
/// when the runtime cannot represent it; the result is then untouched.
bool localTime(std::int64_t instant, std::tm& result) noexcept;

/// The same in UTC.
bool utcTime(std::int64_t instant, std::tm& result) noexcept;

/// The instant of a local time whose members may lie outside their ranges; they are normalised in place, and tm_isdst
/// says on entry whether daylight saving holds (above 0), does not (0) or is for the runtime to find out (below 0). -1
/// when the runtime cannot represent it.
std::int64_t instantOfLocalTime(std::tm& fields) noexcept;

}  // namespace KestSupport::platform
