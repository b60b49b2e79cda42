// The C runtime's conversions between instants and broken-down times, in the local zone and in UTC.
//
// Instants are seconds since 1970-01-01 00:00:00 UTC. The local zone is the one that the environment variable TZ names,
// or the system's own without it. All calls may be made by several threads at once, as long as none of them changes the
// environment meanwhile.
#pragma once

#include <cstdint>
#include <ctime>

namespace KestSupport::platform {

/// A number that stands for the present text of TZ: the same for the same text, however often it changes in between,
/// different for different texts, and never above 1000. 0 when there have been too many texts to be told apart. Sees to
/// it that the runtime uses the zone that TZ names. Meant to be asked before each conversion: it costs a few loads as
/// long as the environment stays the same.
std::uint32_t localZone();

/// Breaks an instant down in the local zone of the last localZone(), zone name included where the runtime keeps one in
/// the structure. False when the runtime cannot represent it; the result is then untouched.
bool localTime(std::int64_t instant, std::tm& result) noexcept;

/// The same in UTC.
bool utcTime(std::int64_t instant, std::tm& result) noexcept;

/// The instant of a local time whose members may lie outside their ranges; they are normalised in place, and tm_isdst
/// says on entry whether daylight saving holds (above 0), does not (0) or is for the runtime to find out (below 0). -1
/// when the runtime cannot represent it.
std::int64_t instantOfLocalTime(std::tm& fields) noexcept;

}  // namespace KestSupport::platform
