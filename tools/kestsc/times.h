// Points in time of the service manager as texts. They are nanoseconds since 1970-01-01 00:00:00 UTC; 0 is not known.
#pragma once

#include <cstdint>
#include <string>

namespace kestsc {

/// Returns the time from then until now in one unit: "5 s", "3 min", "2 h", "4 d"; "-" when it is not known.
std::string timeSince(std::int64_t then);

/// Returns the local time and how long ago it was: "2026-11-23 12:50:05 (3 min ago)"; "not known".
std::string localTimeText(std::int64_t time);

/// Returns a JSON value: the time in UTC, "2026-11-23T12:50:05Z", or null.
std::string jsonTime(std::int64_t time);

}  // namespace kestsc
