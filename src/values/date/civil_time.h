// Calendar arithmetic without time zones. A civil time is what a clock shows, counted in seconds as if the clock showed
// UTC. The functions are pure, and use the Gregorian calendar for all years.
#pragma once

#include <cstdint>
#include <ctime>

namespace KestSupport::internal {

inline constexpr std::int64_t kSecondsPerDay = 86400;

struct CivilDate {
    std::int64_t year;
    int month;  ///< 0 to 11
    int day;    ///< 1 to 31; any other day is counted from these
};

/// Days from 1970-01-01 to the date.
std::int64_t daysFromCivil(const CivilDate& date) noexcept;

bool isLeapYear(std::int64_t year) noexcept;

/// Whether the date and the time of day are within their calendar ranges. A leap second is not.
bool isCalendarTime(const std::tm& fields) noexcept;

/// Returns the civil time in seconds since 1970-01-01 00:00:00. Members outside their ranges carry over into the next
/// larger unit; tm_wday, tm_yday and tm_isdst are ignored.
std::int64_t civilSeconds(const std::tm& fields) noexcept;

/// The inverse, for the years 0 to 9999. Computes tm_wday and tm_yday, and sets tm_isdst to `daylightSaving`.
std::tm brokenDown(std::int64_t civilSeconds, int daylightSaving) noexcept;

}  // namespace KestSupport::internal
