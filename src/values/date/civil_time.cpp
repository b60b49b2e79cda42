#include "values/date/civil_time.h"

namespace KestSupport::internal {
namespace {

constexpr std::uint32_t kDaysPerEra = 146097;  // 400 years, after which the calendar repeats
constexpr std::int64_t kDaysToEpoch = 719468;  // from 0000-03-01 to 1970-01-01

// Adding this number of eras makes every year positive, so the divisions are unsigned, which is faster.
constexpr std::int64_t kErasAdded = 6'000'000;
constexpr std::int64_t kYearsAdded = kErasAdded * 400;
constexpr std::int64_t kDaysAdded = kErasAdded * kDaysPerEra + kDaysToEpoch;

int daysInMonth(std::int64_t year, int month) {
    static constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 1 && isLeapYear(year) ? 29 : kDays[month];
}

constexpr bool isBetween(int low, int value, int high) {
    return low <= value && value <= high;
}

}  // namespace

// A year runs from March to February here: the leap day is its last day, and the number of days before a month grows by
// 153 every five months.
std::int64_t daysFromCivil(const CivilDate& date) noexcept {
    const bool beforeMarch = date.month < 2;
    const int month = beforeMarch ? date.month + 10 : date.month - 2;
    const auto year = static_cast<std::uint64_t>(date.year + kYearsAdded - (beforeMarch ? 1 : 0));
    const std::uint64_t century = year / 100;
    return static_cast<std::int64_t>(year * 365 + year / 4 - century + century / 4) + (153 * month + 2) / 5 + date.day -
           1 - kDaysAdded;
}

bool isLeapYear(std::int64_t year) noexcept {
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

bool isCalendarTime(const std::tm& fields) noexcept {
    return isBetween(0, fields.tm_mon, 11) && isBetween(0, fields.tm_hour, 23) && isBetween(0, fields.tm_min, 59) &&
           isBetween(0, fields.tm_sec, 59) &&
           (isBetween(1, fields.tm_mday, 28) ||
            isBetween(29, fields.tm_mday, daysInMonth(std::int64_t{fields.tm_year} + 1900, fields.tm_mon)));
}

std::int64_t civilSeconds(const std::tm& fields) noexcept {
    std::int64_t year = std::int64_t{fields.tm_year} + 1900;
    int month = fields.tm_mon;
    if (!isBetween(0, month, 11)) {
        year += month / 12;
        month %= 12;
        if (month < 0) {
            month += 12;
            --year;
        }
    }
    return daysFromCivil({year, month, fields.tm_mday}) * kSecondsPerDay + std::int64_t{fields.tm_hour} * 3600 +
           std::int64_t{fields.tm_min} * 60 + fields.tm_sec;
}

std::tm brokenDown(std::int64_t civilSeconds, int daylightSaving) noexcept {
    const auto shifted = static_cast<std::uint64_t>(civilSeconds + kDaysToEpoch * kSecondsPerDay);
    const auto days = static_cast<std::uint32_t>(shifted / kSecondsPerDay);  // since 0000-03-01
    const auto secondOfDay = static_cast<std::uint32_t>(shifted - std::uint64_t{days} * kSecondsPerDay);

    // Counted in quarters of a day, all years of a century have the same length, and so do all centuries of an era.
    // Rounding down puts each leap day at the end of its year.
    const std::uint32_t century = (4 * days + 3) / kDaysPerEra;
    const std::uint32_t dayOfCentury = days - century * kDaysPerEra / 4;
    const std::uint32_t yearOfCentury = (4 * dayOfCentury + 3) / 1461;
    const std::uint32_t dayOfYear = dayOfCentury - yearOfCentury * 1461 / 4;
    const std::uint32_t month = (5 * dayOfYear + 2) / 153;
    const bool nextYear = month >= 10;
    const bool leap = yearOfCentury % 4 == 0 && (yearOfCentury != 0 || century % 4 == 0);

    std::tm fields{};
    fields.tm_sec = static_cast<int>(secondOfDay % 60);
    fields.tm_min = static_cast<int>(secondOfDay / 60 % 60);
    fields.tm_hour = static_cast<int>(secondOfDay / 3600);
    fields.tm_mday = static_cast<int>(dayOfYear - (153 * month + 2) / 5 + 1);
    fields.tm_mon = static_cast<int>(nextYear ? month - 10 : month + 2);
    fields.tm_year = static_cast<int>(century * 100 + yearOfCentury) + (nextYear ? 1 : 0) - 1900;
    fields.tm_wday = static_cast<int>((days + 3) % 7);  // 0000-03-01 is a Wednesday
    fields.tm_yday = static_cast<int>(nextYear ? dayOfYear - 306 : dayOfYear + (leap ? 60 : 59));
    fields.tm_isdst = daylightSaving;
    return fields;
}

}  // namespace KestSupport::internal
