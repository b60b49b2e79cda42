// A date with the time of day, in the local time zone: six fields, an instant that the C runtime derives from them, and
// a locale for its texts. It has a resolution of a second; measure durations with a steady clock instead.
//
// A date is valid when the C runtime's mktime would leave it as it is: that refuses a 31 April as well as a time of day
// that the change to daylight saving skips. Representable are the years from 1970 (in UTC) to 3000; getTime() is -1 for
// anything else. All zone rules are the C runtime's, for the zone that TZ names at the time of the call. Without TZ it
// is the system's own; a change of its file is noticed within a second by the constructor for the current time. When
// clocks are set back, an hour comes twice: such a time means standard time, and where both are that, the later of the
// two.
//
// Failures throw KestInvalidDateException, whose text is "KestInvalidDateException - " and the detail that is named
// with the operation; a change that is refused leaves every field as it was. "Not a date" below stands for the detail
// "Input does not compute to a valid DateTime object".
//
// Threads: different values may be used by different threads; a value that one thread changes must not be used by
// another. TZ must not be changed while another thread is inside an operation.
#pragma once

#include <support/exceptions.h>
#include <support/export.h>
#include <support/strings.h>

#include <atomic>
#include <cstdint>
#include <ctime>
#include <locale>
#include <optional>
#include <string>
#include <string_view>

namespace KestSupport {

class KEST_SUPPORT_EXPORT KestDateTime {
  public:
    /// What add and subtract change. Any other value changes nothing.
    enum FieldId_t : int { Month, Day, Year, Hour, Minute, Second };

    /// The number of stampings so far in this process. Each default construction and each successful change through
    /// operator= or set takes the next number as the value's stamp, which nothing but hash() shows.
    static std::atomic<unsigned int> m_objectCounter;

    /// "Jan" to "Dec", as date texts spell them.
    static const char* const abbrevMonthNames[12];

    /// The current local time, with KestLocaleFactory's default locale.
    KestDateTime();
    /// The source's fields and stamp, with the global locale.
    KestDateTime(const KestDateTime& source);
    virtual ~KestDateTime();

    /// Copies fields and stamp, not the locale.
    KestDateTime& operator=(const KestDateTime& source);
    /// Throws when the members are not a date. tm_isdst counts as mktime lets it count; tm_wday and tm_yday do not.
    KestDateTime& operator=(const std::tm& fields);
    /// Reads a text as set(const std::string&) does.
    KestDateTime& operator=(const std::string& text);

    /// As the assignment, but the detail of a failure is the assignment's whole text, prefix included.
    KestDateTime& set(const std::tm& fields);
    /// Reads a text in one of three layouts, chosen by the characters in it. All give local time.
    ///
    ///   a comma    RFC 1123, "Sun, 06 Nov 1994 08:49:37 GMT": at most 29 characters, else or when an item is missing
    ///              "Incorrect RFC1123 DateTime format". Days and times beyond their range are carried over (31 April
    ///              is 1 May). The weekday and the zone are read and ignored.
    ///   a slash    "06/11/1994 08:49:37", day first: at most 19 characters; the time may be missing or end early.
    ///   otherwise  asctime, "Sun Nov  6 08:49:37 1994": at most 25 characters. The weekday is ignored.
    ///
    /// The last two: "Incorrect DateTime format" for a text that is too long or lacks an item, and "not a date". Years
    /// have all their digits. Month names are those of abbrevMonthNames; any other word counts as January. White space
    /// in front of items and text after the last one are ignored. Words of more than 9 characters and numbers that do
    /// not fit an int are refused as a format that is incorrect.
    KestDateTime& set(const std::string& text);
    /// Month 1 to 12; the year is counted from 1900 (124 is 2024). The time is meant as standard time, so where
    /// daylight saving holds it is refused. The detail of a failure is "KestInvalidDateException - " followed by "not a
    /// date".
    KestDateTime& set(unsigned int day, unsigned int month, unsigned int year, unsigned int hour, unsigned int minute,
                      unsigned int second);
    /// The same at 00:00:00.
    KestDateTime& setDate(unsigned int day, unsigned int month, unsigned int year);
    /// Replaces the locale of the formatting operations.
    void set(const std::locale& locale);

    /// Set one field and return the argument. Month 1 to 12, the full year (2024). The first three refuse what is not a
    /// date together with the other fields, where the daylight saving of the present time goes on to hold; details
    /// "Invalid Day : Exceeds 31" and "Invalid Month : Exceeds 12" when the field alone is wrong (0 is). The last three
    /// check the range alone: "Invalid Hour : Exceeds 23", "Invalid Minute : Exceeds 59", "Invalid Second : Exceeds
    /// 59".
    int setDay(unsigned int day);
    int setMonth(unsigned int month);
    int setYear(unsigned int year);
    int setHour(unsigned int hour);
    int setMinute(unsigned int minute);
    int setSecond(unsigned int second);

    /// The setters above for callers that want a result: false, and the detail in message, where those throw.
    bool setDateTimeImpl(unsigned int day, unsigned int month, unsigned int year, unsigned int hour,
                         unsigned int minute, unsigned int second, std::string& message);
    bool setDateImpl(unsigned int day, unsigned int month, unsigned int year, std::string& message);
    bool setDateTimeFromTmImpl(const std::tm& fields, std::string& message);
    /// False for an incorrect format. Throws for a text of correct format that is not a date or not representable.
    bool setDateTimeFromStrImpl(const std::string& text, std::string& message);

    unsigned int getDay() const;
    unsigned int getMonth() const;  ///< 1 to 12
    unsigned int getYear() const;   ///< such as 2024
    unsigned int getHour() const;
    unsigned int getMinute() const;
    unsigned int getSecond() const;

    /// Seconds since 1970-01-01 00:00:00 UTC; -1 when the fields are not representable, which takes a change of the
    /// zone or a setHour on the first day of 1970.
    std::int64_t getTime() const;
    /// 0 is Sunday.
    unsigned int getWeekday() const;
    /// Day of the year, 1 to 366.
    unsigned int day() const;
    bool isLeapYear() const;
    /// 0 to 27. The stamp takes part, so equal values may have different hashes.
    unsigned int hash() const;

    /// Move the date by an amount of a field, read as a signed number; too many days become months, and so on. The day
    /// of the month is carried over too: a month after 31 January is 3 March (2 March in a leap year). The daylight
    /// saving of the starting point is kept by mktime's rules, so that across a change of the clocks the time of day
    /// moves.
    ///
    /// Details: none for the amount 0, which is refused; "Subtracting does not compute to a valid Date. Trying to
    /// subtract field,FIELD with AMOUNT" (numbers; AMOUNT is negative for subtract) when the result is not
    /// representable.
    KestDateTime& add(FieldId_t field, unsigned int amount);
    KestDateTime& subtract(FieldId_t field, unsigned int amount);

    /// Texts by a locale, by default the one held. All throw std::bad_cast for a locale without std::time_put<wchar_t>.
    wstring16 toString();  ///< date and time, "%c"
    wstring16 toString(const std::locale& locale);
    wstring16 timeToString();  ///< in spite of its name the locale's date, "%x"
    wstring16 timeToString(const std::locale& locale);
    wstring16 dateToString();  ///< in spite of its name the locale's time of day, "%X"
    wstring16 dateToString(const std::locale& locale);
    wstring16 weekdayName();  ///< in full, "%A"
    wstring16 weekdayName(const std::locale& locale);
    wstring16 monthName();  ///< in full, "%B"
    wstring16 monthName(const std::locale& locale);
    wstring16 toGMTString();  ///< as toString, in UTC; where getTime() is -1, the fields as they are

  private:
    bool setDateTime(const std::string& text, std::string& message);
    bool operatorImpl(const std::tm& fields, std::string& message);
    bool validateDateTime(const std::tm& fields, std::string& message) const;
    bool setDayImpl(unsigned int day, std::string& message);
    bool setMonthImpl(unsigned int month, std::string& message);
    bool setYearImpl(unsigned int year, std::string& message);
    bool modifyDate(FieldId_t field, int amount, std::string& message);
    static int getMonthForRFCName(std::string_view name);
    wstring16 constructTimeString(std::tm* fields, const std::locale& locale, const unsigned short* pattern);
    void adjustInstanceId(unsigned int stamps = 1);

    void store(const std::tm& fields);
    std::tm storedFields() const;
    std::tm localFields() const;
    std::locale heldLocale() const;
    wstring16 localText(const std::locale& locale, const unsigned short* pattern);

    std::uint32_t m_day = 1;
    std::uint32_t m_month = 0;  // 0 to 11
    std::uint32_t m_year = 1970;
    std::uint32_t m_hour = 0;
    std::uint32_t m_minute = 0;
    std::uint32_t m_second = 0;
    std::optional<std::locale> m_locale;  // none: the library's default locale, which need not be counted then
    std::uint32_t m_instanceId = 0;
};

/// Compare instants; locale and stamp play no part.
KEST_SUPPORT_EXPORT bool operator==(const KestDateTime& a, const KestDateTime& b);
KEST_SUPPORT_EXPORT bool operator!=(const KestDateTime& a, const KestDateTime& b);
KEST_SUPPORT_EXPORT bool operator<(const KestDateTime& a, const KestDateTime& b);
KEST_SUPPORT_EXPORT bool operator>(const KestDateTime& a, const KestDateTime& b);
KEST_SUPPORT_EXPORT bool operator<=(const KestDateTime& a, const KestDateTime& b);
KEST_SUPPORT_EXPORT bool operator>=(const KestDateTime& a, const KestDateTime& b);

}  // namespace KestSupport
