// The local time zone. Each answer is that of the C runtime, remembered: for a quarter of an hour around an instant,
// and for a few days around a local time.
//
// The runtime is called again where the remembered offsets do not prove the answer: near a change of the clocks, for a
// daylight-saving flag that does not apply at that time, and for seconds outside 0 to 59. When clocks are set back, an
// hour occurs twice. A local time in it means standard time, unless the caller asks for daylight saving; if both are
// standard time, or both daylight saving, it means the later one.
//
// The instants from 1970-01-01 00:00:00 UTC to the end of the year 3000 are representable, in UTC and in local time.
//
// The zone is the one that TZ names at the time of the call; without TZ, the system's zone. momentOfNow notices a
// change of the system's zone file within a second, and each call of the runtime notices it at once. Before that all
// answers use the old zone, after that the new one.
//
// Threads: any thread may call any function. They take no lock while the environment stays the same. As for the
// runtime's own functions, no thread may change the environment during a call.
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>

namespace KestSupport::internal {

/// An instant and its local time.
struct LocalMoment {
    std::int64_t instant;  ///< seconds since 1970-01-01 00:00:00 UTC
    std::int64_t civil;    ///< what the local clock shows, in civil seconds
    int daylightSaving;    ///< tm_isdst
};

/// Returns the local time of an instant; nothing if it is not representable.
std::optional<LocalMoment> momentOfInstant(std::int64_t instant);

/// The same for the current time.
std::optional<LocalMoment> momentOfNow();

/// Returns the instant of a local time, normalised like mktime does; nothing if it is not representable. Reads all
/// members except tm_wday and tm_yday.
std::optional<LocalMoment> momentOfFields(const std::tm& fields);

/// Whether mktime would leave the date and the time of day unchanged, and the instant is representable.
bool isLocalTime(const std::tm& fields);

}  // namespace KestSupport::internal
