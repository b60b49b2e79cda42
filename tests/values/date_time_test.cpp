#include <gtest/gtest.h>
#include <support/date_time.h>
#include <support/exceptions.h>

#include <atomic>
#include <ctime>
#include <functional>
#include <locale>
#include <random>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "kit/time_zone_guard.h"
#include "values/local_zone.h"

namespace {

using KestSupport::KestDateTime;
using KestTest::TimeZoneGuard;

constexpr char kBerlin[] = "CET-1CEST,M3.5.0,M10.5.0/3";
const std::string kPrefix = "KestInvalidDateException - ";
const std::string kNotADate = kPrefix + "Input does not compute to a valid DateTime object";

std::string show(const KestDateTime& date) {
    char text[64];
    std::snprintf(text, sizeof text, "%04u-%02u-%02u %02u:%02u:%02u", date.getYear(), date.getMonth(), date.getDay(),
                  date.getHour(), date.getMinute(), date.getSecond());
    return text;
}

KestDateTime dateOf(const std::string& text) {
    KestDateTime date;
    date = text;
    return date;
}

// What the action did to the value, or the text of what it threw; that must have left the fields alone.
std::string outcome(KestDateTime& date, const std::function<void(KestDateTime&)>& action) {
    const std::string before = show(date);
    try {
        action(date);
        return show(date);
    } catch (const KestSupport::KestInvalidDateException& refusal) {
        EXPECT_EQ(before, show(date));
        return refusal.getText();
    }
}

std::string narrow(const KestSupport::wstring16& text) {
    return std::string(text.begin(), text.end());
}

// The stamp as far as a hash shows it: hash() is (time * 41358 + stamp) mod 28.
unsigned int stampModulo28(const KestDateTime& date) {
    const auto time = static_cast<unsigned long long>(date.getTime());
    return static_cast<unsigned int>((date.hash() + 28 - time % 28 * (41358 % 28) % 28) % 28);
}

void expectRead(const std::string& expected, const std::string& text) {
    KestDateTime date = dateOf("05/06/2007 08:09:10");
    EXPECT_EQ(expected, outcome(date, [&](KestDateTime& d) { d = text; })) << text.substr(0, 40);
    EXPECT_EQ(expected, outcome(date, [&](KestDateTime& d) { d.set(text); })) << text.substr(0, 40);
}

TEST(DateTimeTest, TextsAreReadAsTheirLayoutSays) {
    const TimeZoneGuard utc("UTC0");
    const auto read = [](const std::string& expected, const auto&... texts) { (expectRead(expected, texts), ...); };
    read("2024-02-01 10:20:30", "01/02/2024 10:20:30");
    read("2024-02-01 00:00:00", "01/02/2024", "1/2/2024 xyz", std::string("1/2/2024\0 10:20", 15));
    read("2024-02-01 09:08:00", " 1/ 2/\t2024 9: 8");
    read("2024-02-01 10:00:00", "+1/02/2024 10:xx");
    read("1970-01-01 00:00:00", "01/01/1970");
    read("3000-12-31 23:59:59", "31/12/3000 23:59:59");
    read("1994-11-06 08:49:37", "Sun, 06 Nov 1994 08:49:37 GMT", "Sun Nov  6 08:49:37 1994",
         "Sun Nov  6 08:49:37 1994\n");
    read("1994-12-06 08:49:37", "Mon, 06 Dec 1994 08:49:37 CET");
    read("1994-01-06 08:49:37", "Sun, 6 nov 1994 8:49:37 X", "x Xxx 6 8:49:37 1994");
    read("2024-03-02 10:00:00", "Sat, 31 Feb 2024 10:00:00 GMT");
    read("2024-01-01 00:00:01", "Sat, 31 Dec 2023 23:59:61 GMT");
    read(kPrefix + "Incorrect DateTime format", "", "1 /2/2024", "1/2", "/", "1/2/99999999999", "1/2/2024 2147483648",
         "01/02/2024 10:20:300", std::string("1/2\0/2024", 9), std::string(100000, '/'), std::string(100000, '\xFF'),
         "Wednesday November 6 1:2:3 1994", "Sun Nov  6 08:49:37 1994  ", "Sun Nov  6 08:49:37");
    read(kNotADate, "31/02/2024", "01/02/24", "0/1/2024", "1/0/2024", "1/-2147483648/2024", "1/1/-2147483648",
         "1/2/2024 24:00:00", "1/2/2024 -1", "1/2/2024 10:60", "31/12/1969 23:59:59", "01/01/3001",
         "x Feb 30 1:2:3 1994", "Sat, 1 Jan 3001 0:00:00 GMT", "Sat, 0 Jan 1970 0:00:00 GMT",
         "Sat, 2147483647 Dec 9 9:9:9 Z");
    read(kPrefix + "Incorrect RFC1123 DateTime format", "Sun, 06 Nov 1994 08:49:37", "Sun, 06 Nov 1994 08:49:37 GMT ",
         "01/02/2024,", ",", "Sundaymor, 6 Nov 1994 8:9:7 G", "S, 6 Nov 1994 8:9:7 Greenwichs");
    KestDateTime date;
    std::string message = "untouched";
    EXPECT_TRUE(date.setDateTimeFromStrImpl("01/02/2024", message));
    EXPECT_EQ("untouched", message);
    EXPECT_FALSE(date.setDateTimeFromStrImpl("01/02", message));
    EXPECT_EQ("Incorrect DateTime format", message);
    EXPECT_THROW(date.setDateTimeFromStrImpl("31/02/2024", message), KestSupport::KestInvalidDateException);
}

// Sets a field of a date in a zone to a value ('='), or adds to it ('+', '-').
std::string changed(const char* zone, const char* start, char change, KestDateTime::FieldId_t field, unsigned value) {
    using D = KestDateTime;
    int (D::*const setters[])(unsigned) = {&D::setMonth, &D::setDay,    &D::setYear,
                                           &D::setHour,  &D::setMinute, &D::setSecond};
    const TimeZoneGuard guard(zone);
    D date = dateOf(start);
    return outcome(date, [&](D& d) {
        if (change == '+') d.add(field, value);
        if (change == '-') d.subtract(field, value);
        if (change != '=') return;
        EXPECT_EQ(static_cast<int>(value), (d.*setters[field])(value));
    });
}

TEST(DateTimeTest, FieldsAreSetAndAddedToUnlessThatGivesNoDate) {
    using D = KestDateTime;
    const auto set = [](D::FieldId_t field, unsigned value) {
        return changed("UTC0", "30/04/2024", '=', field, value);
    };
    for (const std::string& refused :
         {set(D::Day, 31), set(D::Month, 2), set(D::Year, ~0U), changed("UTC0", "29/02/2024", '=', D::Year, 2023),
          changed(kBerlin, "01/03/2024 12:00:00", '=', D::Day, 31)})
        EXPECT_EQ(kNotADate, refused);
    EXPECT_EQ("2024-12-30 00:00:00", set(D::Month, 12));
    EXPECT_EQ("2028-04-30 00:00:00", set(D::Year, 2028));
    EXPECT_EQ("2024-04-30 23:00:00", set(D::Hour, 23));
    for (const unsigned factor : {0U, 1U}) {
        EXPECT_EQ(kPrefix + "Invalid Day : Exceeds 31", set(D::Day, 32 * factor));
        EXPECT_EQ(kPrefix + "Invalid Month : Exceeds 12", set(D::Month, 13 * factor));
    }
    EXPECT_EQ(kPrefix + "Invalid Hour : Exceeds 23", set(D::Hour, 24));
    EXPECT_EQ(kPrefix + "Invalid Minute : Exceeds 59", set(D::Minute, 60));
    EXPECT_EQ(kPrefix + "Invalid Second : Exceeds 59", set(D::Second, 60));
    EXPECT_EQ("2024-03-30 00:00:00", changed(kBerlin, "01/03/2024", '=', D::Day, 30));
    EXPECT_EQ("2023-03-06 00:00:00", changed("UTC0", "25/01/2023", '+', D::Day, 40));
    EXPECT_EQ("2024-03-02 00:00:00", changed("UTC0", "31/03/2024", '-', D::Month, 1));
    EXPECT_EQ("2025-03-01 00:00:00", changed("UTC0", "29/02/2024", '+', D::Year, 1));
    EXPECT_EQ("2025-01-01 00:00:00", changed("UTC0", "31/12/2024 23:59:59", '+', D::Second, 1));
    EXPECT_EQ("2024-12-31 23:59:00", changed("UTC0", "01/01/2025", '-', D::Minute, 1));
    EXPECT_EQ("2024-12-31 23:00:00", changed("UTC0", "01/01/2025", '+', D::Hour, ~0U));
    EXPECT_EQ("2025-01-01 00:00:00", changed("UTC0", "01/01/2025", '+', D::FieldId_t(6), 9));
    EXPECT_EQ("2024-03-31 13:00:00", changed(kBerlin, "30/03/2024 12:00:00", '+', D::Day, 1));
    EXPECT_EQ(kPrefix, changed("UTC0", "01/01/2025", '+', D::Day, 0));
    const std::string noSum = kPrefix + "Subtracting does not compute to a valid Date. Trying to subtract field,";
    EXPECT_EQ(noSum + "2 with -56", changed("UTC0", "01/01/2025", '-', D::Year, 56));
    EXPECT_EQ(noSum + "0 with 2147483647", changed("UTC0", "01/01/2025", '+', D::Month, 2147483647));
}

TEST(DateTimeTest, WholeDatesAreSetUnlessTheyAreNone) {
    std::tm leapSecond{};
    leapSecond.tm_sec = 60;
    leapSecond.tm_mday = 1;
    leapSecond.tm_year = 100;
    const std::string no = kPrefix + kNotADate;
    const auto done = [](const char* zone, const std::function<void(KestDateTime&)>& action) {
        const TimeZoneGuard guard(zone);
        KestDateTime date = dateOf("01/01/2000");
        return outcome(date, action);
    };
    EXPECT_EQ("2024-02-01 03:04:05", done("UTC0", [](auto& d) { d.set(1, 2, 124, 3, 4, 5); }));
    EXPECT_EQ(no, done("UTC0", [](auto& d) { d.set(1, 2, 2024, 0, 0, 0); }));
    EXPECT_EQ(no, done("UTC0", [](auto& d) { d.set(~0U, 2, 124, 0, 0, 0); }));
    EXPECT_EQ(no, done("UTC0", [](auto& d) { d.set(1, 0, 124, 0, 0, 0); }));
    EXPECT_EQ(no, done("UTC0", [](auto& d) { d.setDate(29, 2, 123); }));
    EXPECT_EQ(no, done("UTC0", [&](auto& d) { d.set(leapSecond); }));
    EXPECT_EQ(kNotADate, done("UTC0", [&](auto& d) { d = leapSecond; }));
    EXPECT_EQ(no, done(kBerlin, [](auto& d) { d.setDate(1, 7, 124); }));
    EXPECT_EQ("2024-01-01 00:00:00", done(kBerlin, [](auto& d) { d.setDate(1, 1, 124); }));
    EXPECT_EQ(kNotADate, done(kBerlin, [](auto& d) { d = std::string("31/03/2024 02:30:00"); }));
    EXPECT_EQ("2024-03-31 03:30:00", done(kBerlin, [](auto& d) { d = std::string("X, 31 Mar 2024 2:30:0 Z"); }));
    EXPECT_EQ("1970-01-02 00:00:00",
              done(kBerlin, [](auto& d) { d.set(1, 1, 70, 1, 0, 0), d.setHour(0), d.setDay(2); }));
}

// The runtime is asked about the same fields right after, so that even an hour that comes twice has one answer.
void compareWithRuntime(std::int64_t instant, std::mt19937& random) {
    const std::time_t seconds = instant;
    std::tm fields = *std::localtime(&seconds);
    const auto moment = KestSupport::internal::momentOfInstant(instant);
    ASSERT_TRUE(moment);
    EXPECT_EQ(fields.tm_isdst, moment->daylightSaving);
    fields.tm_isdst = static_cast<int>(random() % 3) - 1;
    if (random() % 4 == 0) {
        fields.tm_mday += static_cast<int>(random() % 100) - 50;
        fields.tm_mon += static_cast<int>(random() % 40) - 20;
        fields.tm_sec += static_cast<int>(random() % 3) * 10000000;
    }
    const auto found = KestSupport::internal::momentOfFields(fields);
    const bool valid = KestSupport::internal::isLocalTime(fields);
    std::tm expected = fields;
    const std::int64_t expectedInstant = std::mktime(&expected);
    ASSERT_EQ(expectedInstant >= 0, found.has_value());
    if (!found) return;
    EXPECT_EQ(expectedInstant, found->instant);
    const auto read = [](const std::tm& t) { return std::tie(t.tm_sec, t.tm_min, t.tm_hour, t.tm_mday, t.tm_mon); };
    EXPECT_EQ(valid, read(fields) == read(expected));
    if (!valid) return;
    KestDateTime date;
    date = fields;
    EXPECT_EQ(static_cast<unsigned int>(expected.tm_wday), date.getWeekday());
    EXPECT_EQ(static_cast<unsigned int>(expected.tm_yday + 1), date.day());
    EXPECT_EQ(std::mktime(&(expected.tm_isdst = -1, expected)), date.getTime());
}

TEST(DateTimeTest, EveryZoneIsTheRuntimesOwn) {
    std::mt19937 random(20240229);
    const auto compare = [&](const char* zone) {
        const TimeZoneGuard guard(zone);
        SCOPED_TRACE(zone);
        for (int times = 0; times < 500; ++times)
            compareWithRuntime(static_cast<std::int64_t>(random()), random);
        // The last Sundays of March and October 2024, minute by minute around the change.
        for (int minute = -90; minute < 90; ++minute) {
            compareWithRuntime(1711846800 + minute * 60, random);
            compareWithRuntime(1729990800 + minute * 60, random);
        }
    };
    const auto compareAll = [&](const auto*... zones) { (compare(zones), ...); };
    for (int round = 0; round < 2; ++round) {  // each is met again after others
        compareAll(kBerlin, "Europe/Berlin", "America/New_York", "Australia/Lord_Howe", "UTC0", "Asia/Kathmandu",
                   "America/St_Johns", "Pacific/Apia", "Africa/Monrovia", "", "X24:59:59Y-24:59:59,M3.2.0,M11.1.0",
                   "<-02>2<-01>,M3.5.0/-1,M10.5.0/0");
    }
}

TEST(DateTimeTest, ComparesInstantsAndStampsEveryChange) {
    const TimeZoneGuard guard(kBerlin);
    const KestDateTime early = dateOf("06/11/1994 08:49:36");
    const KestDateTime late = dateOf("06/11/1994 08:49:37");
    EXPECT_EQ(784108177, late.getTime());
    EXPECT_TRUE(early < late && early <= late && early != late && late > early && late >= early);
    EXPECT_FALSE(early == late || early > late || early >= late);
    EXPECT_TRUE(KestDateTime(late) == late && late <= late && late >= late);
    EXPECT_EQ(late.hash(), KestDateTime(late).hash());

    KestDateTime date;
    const auto expectStamps = [&date](unsigned int stamps, const std::function<void(KestDateTime&)>& action) {
        const unsigned int before = KestDateTime::m_objectCounter;
        const unsigned int stampBefore = stampModulo28(date);
        action(date);
        EXPECT_EQ(before + stamps, KestDateTime::m_objectCounter);
        EXPECT_EQ(stamps == 0 ? stampBefore : KestDateTime::m_objectCounter % 28, stampModulo28(date));
    };
    expectStamps(2, [](KestDateTime& d) { d = std::string("01/01/2020"); });
    expectStamps(2, [](KestDateTime& d) { d.set(std::string("X, 1 Jan 2020 0:0:0 Z")); });
    expectStamps(1, [](KestDateTime& d) { EXPECT_ANY_THROW(d = std::string("x")); });
    expectStamps(0, [](KestDateTime& d) { EXPECT_ANY_THROW(d.set(std::string("x"))); });
    expectStamps(2, [](KestDateTime& d) { d.setDate(1, 1, 120); });
    expectStamps(1, [](KestDateTime& d) { d.add(KestDateTime::Day, 1); });
    expectStamps(0, [](KestDateTime& d) { d.setYear(2021), d.setMonth(2), d.setDay(6), d.setHour(7); });
    date.set(1, 1, 70, 1, 0, 0);
    date.setHour(0);
    EXPECT_EQ(-1, date.getTime());
    EXPECT_LT(date.hash(), 28U);
    EXPECT_EQ(4U, date.getWeekday());
}

TEST(DateTimeTest, LeapYearsAreTheCalendarsAtEveryHour) {
    for (const char* zone : {"UTC0", kBerlin, "AEST-10AEDT,M10.1.0,M4.1.0/3"}) {
        const TimeZoneGuard guard(zone);
        for (const unsigned year : {2024U, 2023U, 2000U, 2100U}) {
            KestDateTime date = dateOf("01/01/" + std::to_string(year) + " 12:30:00");
            for (; date.getYear() == year; date.add(KestDateTime::Hour, 37))
                EXPECT_EQ(year == 2024 || year == 2000, date.isLeapYear()) << zone << ' ' << show(date);
        }
    }
}

/// A time_put that writes what it was asked for, and a character from outside the basic plane.
class EchoingTimePut : public std::time_put<wchar_t> {
  protected:
    iter_type do_put(iter_type out, std::ios_base& state, wchar_t, const std::tm* time, char format,
                     char) const override {
        EXPECT_TRUE(std::has_facet<std::time_put<wchar_t>>(state.getloc()));
        *out++ = static_cast<wchar_t>('0' + time->tm_hour), *out++ = static_cast<wchar_t>(format),
        *out++ = L'\U0001F552';
        return out;
    }
};

TEST(DateTimeTest, TextsComeFromTheLocale) {
    const TimeZoneGuard guard(kBerlin);
    const std::locale echoing(std::locale::classic(), new EchoingTimePut);
    KestDateTime date = dateOf("06/11/1994 08:49:37");
    std::string texts;
    for (const std::locale& locale : {std::locale::classic(), echoing}) {
        date.set(locale);
        const auto add = [&](const KestSupport::wstring16& text) {
            const bool echoed = text == KestSupport::wstring16{'8', text[1], 0xD83D, 0xDD52};
            texts += echoed ? std::string(1, static_cast<char>(text[1])) : narrow(text) + '|';
        };
        add(date.toString()), add(date.timeToString()), add(date.dateToString());
        add(date.weekdayName()), add(date.monthName());
    }
    EXPECT_EQ("Sun Nov  6 08:49:37 1994|11/06/94|08:49:37|Sunday|November|cxXAB", texts);
    EXPECT_EQ('7', date.toGMTString()[0]);
    const std::locale before = std::locale::global(std::locale::classic());
    KestDateTime copy(date);
    EXPECT_EQ("Sun Nov  6 07:49:37 1994", narrow(copy.toGMTString()));
    copy.set(echoing);
    copy = date;
    EXPECT_EQ('7', copy.toGMTString()[0]);
    std::locale::global(before);
}

TEST(DateTimeTest, NowIsTheLocalTimeInTheZoneOfTheMoment) {
    for (const char* zone : {"UTC0", kBerlin, "<+0545>-5:45", "UTC0"}) {
        const TimeZoneGuard guard(zone);
        const std::int64_t before = std::time(nullptr);
        const KestDateTime now;
        EXPECT_LE(before, now.getTime()) << zone;
        EXPECT_GE(std::time(nullptr), now.getTime()) << zone;
    }
}

TEST(DateTimeTest, ThreadsShareWhatIsRememberedOfTheZone) {
    const TimeZoneGuard guard(kBerlin);
    std::atomic<int> wrong{0};
    const unsigned int before = KestDateTime::m_objectCounter;
    std::vector<std::thread> threads(4);
    for (std::thread& thread : threads) {
        thread = std::thread([&wrong] {
            KestDateTime date;
            for (unsigned int i = 0; i < 2000; ++i) {
                date.set(1, 1 + i % 2, 100 + i * 7 % 100, 12, 0, 0);
                if (date.getTime() % 86400 != 11 * 3600 || date.getHour() != 12) ++wrong;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(0, wrong);
    EXPECT_EQ(before + 4 * (1 + 2000 * 2), KestDateTime::m_objectCounter);
}

}  // namespace
