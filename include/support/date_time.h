// A date with the time of day in the local time zone: six fields, the instant that the C runtime derives from them, and
// a locale for texts. The resolution is a second; use a steady clock to measure durations.
//
// A date is valid if the C runtime's mktime would not change it: a 31 April is invalid, and so is a time of day that
// the change to daylight saving skips. The years from 1970 (in UTC) to 3000 are representable; getTime() is -1 for any
// other. All zone rules are those of the C runtime, for the zone that TZ names at the time of the call. Without TZ the
// system's zone applies; the constructor for the current time notices a change of the zone's file within a second. When
// clocks are set back, an hour occurs twice: a time in it means standard time, or the later one if both are standard
// time.
//
// Failures throw KestInvalidDateException with the text "KestInvalidDateException - " and the detail that each
// operation names. A refused change leaves every field unchanged. Below, "not a date" is the detail "Input does not
// compute to a valid DateTime object".
//
// Threads: different threads may use different values. While one thread changes a value, no other may use it. No thread
// may change TZ while another one is inside an operation.
#pragma once

#include <support/exceptions.h>
#include <support/export.h>
#include <support/strings.h>

#include <cstdint>
#include <ctime>
#ifdef __GLIBCXX__
// Clocks and durations without the calendars and streams of <chrono>, which take 60 ms to compile.
#include <shared_mutex>
#else
#include <chrono>
#endif
#include <string>
#include <string_view>

namespace KestSupport {

/// A date with its time of day, as a value.
class KEST_SUPPORT_EXPORT KestDateTime {
  public:
    /// The field that add and subtract change. Any other value changes nothing.
    enum FieldId_t : int { Month, Day, Year, Hour, Minute, Second };

    /// The number of stamps taken in this process. Each default construction and each successful change by operator= or
    /// set takes the next number as the value's stamp, which only hash() shows.
    /// The library counts in atomic steps; read it in a std::atomic_ref while another thread takes stamps.
    static unsigned int m_objectCounter;

    /// "Jan" to "Dec", as date texts spell them.
    static const char* const abbrevMonthNames[12];

    /// The current local time, with KestLocaleFactory's default locale.
    KestDateTime();
    /// The source's fields and stamp, with the global locale.
    KestDateTime(const KestDateTime& source);
    virtual ~KestDateTime();

    /// Copies fields and stamp, not the locale.
    KestDateTime& operator=(const KestDateTime& source);
    /// Throws if the members are not a date. tm_isdst has the meaning that mktime gives it; tm_wday and tm_yday are
    /// ignored.
    KestDateTime& operator=(const std::tm& fields);
    /// Reads a text like set(const std::string&).
    KestDateTime& operator=(const std::string& text);

    /// Like the assignment, but the detail of a failure is the whole text of the assignment's exception.
    KestDateTime& set(const std::tm& fields);
    /// Reads a text in one of three layouts, chosen by the characters in it. All give local time.
    ///
    ///   a comma    RFC 1123, "Sun, 06 Nov 1994 08:49:37 GMT": at most 29 characters. Days and times outside their
    ///              ranges are carried over (31 April is 1 May). The weekday and the zone are read and ignored. A text
    ///              that is too long or lacks an item: "Incorrect RFC1123 DateTime format".
    ///   a slash    "06/11/1994 08:49:37", day first: at most 19 characters; the time may be missing or end early.
    ///   otherwise  asctime, "Sun Nov  6 08:49:37 1994": at most 25 characters. The weekday is ignored.
    ///
    /// Details of the last two: "Incorrect DateTime format" for a text that is too long or lacks an item, and "not a
    /// date". A year has all its digits. Month names are those of abbrevMonthNames; any other word means January. White
    /// space before items and text after the last one are ignored. Words of more than 9 characters and numbers that do
    /// not fit an int are an incorrect format.
    KestDateTime& set(const std::string& text);
    /// Month 1 to 12; the year is counted from 1900 (124 is 2024). The time is standard time, so a date with daylight
    /// saving is refused. The detail of a failure is "KestInvalidDateException - " followed by "not a date".
    KestDateTime& set(unsigned int day, unsigned int month, unsigned int year, unsigned int hour, unsigned int minute,
                      unsigned int second);
    /// The same at 00:00:00.
    KestDateTime& setDate(unsigned int day, unsigned int month, unsigned int year);
    /// Replaces the locale of the formatting operations.
    void set(const std::locale& locale);

    /// Set one field and return the argument. Month 1 to 12, the full year (2024). The first three check the whole
    /// date, with the daylight saving of the value so far, and have the details "Invalid Day : Exceeds 31" and "Invalid
    /// Month : Exceeds 12" if the field alone is out of range (0 is too). The last three check only the range of the
    /// field: "Invalid Hour : Exceeds 23", "Invalid Minute : Exceeds 59", "Invalid Second : Exceeds 59".
    int setDay(unsigned int day);
    int setMonth(unsigned int month);
    int setYear(unsigned int year);
    int setHour(unsigned int hour);
    int setMinute(unsigned int minute);
    int setSecond(unsigned int second);

    /// The setters above, which return false with the detail in `message` where those throw.
    bool setDateTimeImpl(unsigned int day, unsigned int month, unsigned int year, unsigned int hour,
                         unsigned int minute, unsigned int second, std::string& message);
    bool setDateImpl(unsigned int day, unsigned int month, unsigned int year, std::string& message);
    bool setDateTimeFromTmImpl(const std::tm& fields, std::string& message);
    /// False for an incorrect format. Throws for a text of correct format that is not a date or not representable.
    bool setDateTimeFromStrImpl(const std::string& text, std::string& message);

    /// The fields of the stored local time.
    unsigned int getDay() const;
    unsigned int getMonth() const;  ///< 1 to 12
    unsigned int getYear() const;   ///< such as 2024
    unsigned int getHour() const;
    unsigned int getMinute() const;
    unsigned int getSecond() const;

    /// Seconds since 1970-01-01 00:00:00 UTC; -1 if the fields are not representable, which happens after a change of
    /// the zone or after setHour on 1 January 1970.
    std::int64_t getTime() const;
    /// 0 is Sunday.
    unsigned int getWeekday() const;
    /// Day of the year, 1 to 366.
    unsigned int day() const;
    bool isLeapYear() const;  ///< whether the year has a 29 February
    /// 0 to 27. The stamp is part of the hash, so equal values may have different hashes.
    unsigned int hash() const;

    /// Move the date by an amount of a field; the amount is read as a signed number. Values outside their ranges carry
    /// over, days of the month too: a month after 31 January is 3 March (2 March in a leap year). mktime keeps the
    /// daylight saving of the starting point, so the time of day moves across a change of the clocks.
    ///
    /// The amount 0 is refused with an empty detail. A result that is not representable has the detail "Subtracting
    /// does not compute to a valid Date. Trying to subtract field,FIELD with AMOUNT" (numbers; AMOUNT is negative for
    /// subtract).
    KestDateTime& add(FieldId_t field, unsigned int amount);
    KestDateTime& subtract(FieldId_t field, unsigned int amount);

    /// Texts in the given locale, or in the value's own. Throw std::bad_cast for a locale without
    /// std::time_put<wchar_t>.
    wstring16 toString();  ///< date and time, "%c"
    wstring16 toString(const std::locale& locale);
    wstring16 timeToString();  ///< the locale's date, "%x", in spite of the name
    wstring16 timeToString(const std::locale& locale);
    wstring16 dateToString();  ///< the locale's time of day, "%X", in spite of the name
    wstring16 dateToString(const std::locale& locale);
    wstring16 weekdayName();  ///< in full, "%A"
    wstring16 weekdayName(const std::locale& locale);
    wstring16 monthName();  ///< in full, "%B"
    wstring16 monthName(const std::locale& locale);
    wstring16 toGMTString();  ///< like toString, in UTC; the stored fields if getTime() is -1

    /// Return the local time of an instant, with KestLocaleFactory's default locale; parts of a second are dropped. An
    /// instant that is not representable throws "not a date". In the hour that occurs twice the result is its standard
    /// time, so getTime() can be later than the instant.
    static KestDateTime fromTime(std::int64_t secondsSince1970);
    static KestDateTime fromTimePoint(std::chrono::system_clock::time_point instant);
    /// Reads a date of RFC 3339, "1994-11-06T08:49:37Z" or "1994-11-06T08:49:37.5+01:00", and converts it to the local
    /// time. 'T' may be a blank, letters may be small, and the second may be 60. Throws like fromTime, and for any
    /// other text, also one with an item outside its range, "Incorrect RFC3339 DateTime format".
    static KestDateTime fromRfc3339(std::string_view text);
    /// Returns the local time of a time in UTC, whose tm_wday, tm_yday and tm_isdst are ignored. Throws like fromTime;
    /// an item outside its range is "not a date".
    static KestDateTime fromUtc(const std::tm& fields);

    /// Return the instant. They throw "not a date" if getTime() is -1; toTimePoint also for an instant that is too late
    /// for the clock, which in libstdc++ ends in the year 2262.
    std::chrono::system_clock::time_point toTimePoint() const;
    /// With the offset of the local time, "1994-11-06T09:49:37+01:00". If the zone has an offset of odd seconds, the
    /// text has the offset without these seconds, and a time of day that agrees with it.
    std::string toRfc3339() const;
    std::string toRfc3339Utc() const;  ///< "1994-11-06T08:49:37Z"
    std::tm toUtc() const;             ///< the fields in UTC

  private:
    KestDateTime(const std::tm& fields, unsigned int stamps);
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
    std::int64_t instant() const;
    std::tm storedFields() const;
    std::tm localFields() const;
    std::locale heldLocale() const;
    void hold(const std::locale& locale) noexcept;
    wstring16 localText(const std::locale& locale, const unsigned short* pattern);

    std::uint32_t m_day = 1;
    std::uint32_t m_month = 0;  // 0 to 11
    std::uint32_t m_year = 1970;
    std::uint32_t m_hour = 0;
    std::uint32_t m_minute = 0;
    std::uint32_t m_second = 0;
    // (<optional> takes 20 ms to compile.)
    union HeldLocale {
        HeldLocale() noexcept {}
        ~HeldLocale() {}
        std::locale value;
    };
    HeldLocale m_locale;
    bool m_holdsLocale = false;  // else it is the library's default locale; that saves counting its references
    std::uint32_t m_instanceId = 0;
};

/// Compare instants; the locale and the stamp are ignored.
KEST_SUPPORT_EXPORT bool operator==(const KestDateTime& a, const KestDateTime& b);
KEST_SUPPORT_EXPORT bool operator!=(const KestDateTime& a, const KestDateTime& b);
KEST_SUPPORT_EXPORT bool operator<(const KestDateTime& a, const KestDateTime& b);
KEST_SUPPORT_EXPORT bool operator>(const KestDateTime& a, const KestDateTime& b);
KEST_SUPPORT_EXPORT bool operator<=(const KestDateTime& a, const KestDateTime& b);
KEST_SUPPORT_EXPORT bool operator>=(const KestDateTime& a, const KestDateTime& b);

}  // namespace KestSupport
