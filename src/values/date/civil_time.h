// Calendar arithmetic without zones: a civil time is counted in seconds as if its clock showed UTC. Pure functions, for
// the Gregorian calendar, extended to all years.
#pragma once

#include <cstdint>
#include <ctime>

namespace KestSupport::internal {

inline constexpr std::int64_t kSecondsPerDay = 86400;

struct CivilDate {
    std::int64_t year;
    int month;  ///< 0 to 11
    int day;    ///< 1 to 31
};

/// Days from 1970-01-01 to the date.
std::int64_t daysFromCivil(const CivilDate& date) noexcept;

bool isLeapYear(std::int64_t year) noexcept;

/// Whether every member of the date and the time of day lies within its calendar range (no leap seconds).
bool isCalendarTime(const std::tm& fields) noexcept;

/// The civil time in seconds since 1970-01-01 00:00:00. Members beyond their ranges count on into the next larger unit;
/// tm_wday, tm_yday and tm_isdst play no part.
std::int64_t civilSeconds(const std::tm& fields) noexcept;

/// The inverse, for the years 0 to 9999. The weekday and the day of the year are filled in, tm_isdst as given.
std::tm brokenDown(std::int64_t civilSeconds, int daylightSaving) noexcept;

}  // namespace KestSupport::internal
