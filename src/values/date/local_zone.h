// The local time zone, with what the C runtime says of it remembered: for a quarter of an hour around an instant, and
// for a few days around a local time.
//
// Every answer is the C runtime's own. Where what is remembered does not prove it (near a change of the clocks, for a
// daylight-saving flag that does not hold at that time, for spare seconds), the runtime is asked. A local time that
// comes twice because clocks are set back is the standard time, unless daylight saving is asked for; if that does not
// decide, it is the later one.
//
// Representable are the instants from 1970-01-01 00:00:00 UTC to the end of the year 3000, in UTC and in local time.
//
// The zone is the one that TZ names at the time of the call. When the system's own is used instead, a change of its
// file is noticed by momentOfNow within a second, and by each call that asks the runtime. Until then all answers are
// those of the old zone, after that those of the new one.
//
// Threads: all functions may be called by any thread; they take no lock as long as the environment stays the same. As
// with the runtime's own functions, no thread may change it meanwhile.
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>

namespace KestSupport::internal {

/// An instant and the local time that belongs to it.
struct LocalMoment {
    std::int64_t instant;  ///< seconds since 1970-01-01 00:00:00 UTC
    std::int64_t civil;    ///< what the local clock shows, in civil seconds
    int daylightSaving;    ///< tm_isdst
};

/// The local time of an instant; nothing when it is not representable.
std::optional<LocalMoment> momentOfInstant(std::int64_t instant);

/// The same for the present instant.
std::optional<LocalMoment> momentOfNow();

/// The instant of a local time, normalised as mktime does it; nothing when it is not representable. All members but
/// tm_wday and tm_yday count.
std::optional<LocalMoment> momentOfFields(const std::tm& fields);

/// Whether mktime would leave the date and the time of day as they are, and the instant is representable.
bool isLocalTime(const std::tm& fields);

}  // namespace KestSupport::internal
