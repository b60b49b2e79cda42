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
constexpr char kNotADate[] = "KestInvalidDateException - Input does not compute to a valid DateTime object";

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

TEST(DateTimeTest, TextsAreReadAsTheirLayoutSays) {
    const TimeZoneGuard utc("UTC0");
    const std::string rfcFormat = "KestInvalidDateException - Incorrect RFC1123 DateTime format";
    const std::string format = "KestInvalidDateException - Incorrect DateTime format";
    const std::tuple<std::string, std::string> cases[] = {
        {"01/02/2024 10:20:30", "2024-02-01 10:20:30"},
        {"01/02/2024", "2024-02-01 00:00:00"},
        {" 1/ 2/\t2024 9: 8", "2024-02-01 09:08:00"},
        {"+1/02/2024 10:xx", "2024-02-01 10:00:00"},
        {"1/2/2024 xyz", "2024-02-01 00:00:00"},
        {"1 /2/2024", format},
        {"1/2", format},
        {"/", format},
        {"1/2/99999999999", format},
        {"1/2/2024 2147483648", format},
        {"01/02/2024 10:20:300", format},
        {"31/02/2024", kNotADate},
        {"01/02/24", kNotADate},
        {"0/1/2024", kNotADate},
        {"1/0/2024", kNotADate},
        {"1/-2147483648/2024", kNotADate},
        {"1/1/-2147483648", kNotADate},
        {"1/2/2024 24:00:00", kNotADate},
        {"1/2/2024 -1", kNotADate},
        {"1/2/2024 10:60", kNotADate},
        {"31/12/1969 23:59:59", kNotADate},
        {"01/01/1970", "1970-01-01 00:00:00"},
        {"31/12/3000 23:59:59", "3000-12-31 23:59:59"},
        {"01/01/3001", kNotADate},
        {"Sun, 06 Nov 1994 08:49:37 GMT", "1994-11-06 08:49:37"},
        {"Mon, 06 Dec 1994 08:49:37 CET", "1994-12-06 08:49:37"},
        {"Sun, 6 nov 1994 8:49:37 X", "1994-01-06 08:49:37"},
        {"Sat, 31 Feb 2024 10:00:00 GMT", "2024-03-02 10:00:00"},
        {"Sat, 31 Dec 2023 23:59:61 GMT", "2024-01-01 00:00:01"},
        {"Sat, 1 Jan 3001 0:00:00 GMT", kNotADate},
        {"Sat, 0 Jan 1970 0:00:00 GMT", kNotADate},
        {"Sat, 2147483647 Dec 9 9:9:9 Z", kNotADate},
        {"Sun, 06 Nov 1994 08:49:37", rfcFormat},
        {"Sun, 06 Nov 1994 08:49:37 GMT ", rfcFormat},
        {"Sundaymor, 6 Nov 1994 8:9:7 G", rfcFormat},
        {"S, 6 Nov 1994 8:9:7 Greenwichs", rfcFormat},
        {"01/02/2024,", rfcFormat},
        {",", rfcFormat},
        {"Sun Nov  6 08:49:37 1994", "1994-11-06 08:49:37"},
        {"Wednesday November 6 1:2:3 1994", format},
        {"x Xxx 6 1:2:3 1994", "1994-01-06 01:02:03"},
        {"x Feb 30 1:2:3 1994", kNotADate},
        {"Sun Nov  6 08:49:37 1994\n", "1994-11-06 08:49:37"},
        {"Sun Nov  6 08:49:37 1994  ", format},
        {"Sun Nov  6 08:49:37", format},
        {"", format},
        {std::string("1/2/2024\0 10:20", 15), "2024-02-01 00:00:00"},
        {std::string("1/2\0/2024", 9), format},
        {std::string(100000, '/'), format},
        {std::string(100000, '\xFF'), format},
    };
    for (const auto& [text, expected] : cases) {
        KestDateTime date = dateOf("05/06/2007 08:09:10");
        EXPECT_EQ(expected, outcome(date, [&](KestDateTime& d) { d = text; })) << text.substr(0, 40);
        EXPECT_EQ(expected, outcome(date, [&](KestDateTime& d) { d.set(text); })) << text.substr(0, 40);
    }
    KestDateTime date;
    std::string message = "untouched";
    EXPECT_TRUE(date.setDateTimeFromStrImpl("01/02/2024", message));
    EXPECT_EQ("untouched", message);
    EXPECT_FALSE(date.setDateTimeFromStrImpl("01/02", message));
    EXPECT_EQ("Incorrect DateTime format", message);
    EXPECT_THROW(date.setDateTimeFromStrImpl("31/02/2024", message), KestSupport::KestInvalidDateException);
}

TEST(DateTimeTest, SettersRefuseWhatIsNoDateAndSayWhy) {
    const std::string prefix = "KestInvalidDateException - ";
    using Action = std::function<void(KestDateTime&)>;
    std::tm leapSecond{};
    leapSecond.tm_sec = 60;
    leapSecond.tm_mday = 1;
    leapSecond.tm_year = 100;
    const std::tuple<const char*, const char*, Action, std::string> cases[] = {
        {"UTC0", "01/01/2000", [](KestDateTime& d) { d.set(1, 2, 124, 3, 4, 5); }, "2024-02-01 03:04:05"},
        {"UTC0", "01/01/2000", [](KestDateTime& d) { d.set(1, 2, 2024, 0, 0, 0); }, prefix + kNotADate},
        {"UTC0", "01/01/2000", [](KestDateTime& d) { d.set(1, 0, 124, 0, 0, 0); }, prefix + kNotADate},
        {"UTC0", "01/01/2000", [](KestDateTime& d) { d.set(~0U, 2, 124, 0, 0, 0); }, prefix + kNotADate},
        {"UTC0", "01/01/2000", [](KestDateTime& d) { d.setDate(29, 2, 123); }, prefix + kNotADate},
        {"UTC0", "01/01/2000", [&](KestDateTime& d) { d = leapSecond; }, kNotADate},
        {"UTC0", "01/01/2000", [&](KestDateTime& d) { d.set(leapSecond); }, prefix + kNotADate},
        {kBerlin, "01/01/2000", [](KestDateTime& d) { d.setDate(1, 1, 124); }, "2024-01-01 00:00:00"},
        {kBerlin, "01/01/2000", [](KestDateTime& d) { d.setDate(1, 7, 124); }, prefix + kNotADate},
        {kBerlin, "01/01/2000", [](KestDateTime& d) { d = std::string("31/03/2024 02:30:00"); }, kNotADate},
        {kBerlin, "01/01/2000", [](KestDateTime& d) { d = std::string("X, 31 Mar 2024 2:30:0 Z"); },
         "2024-03-31 03:30:00"},
        {kBerlin, "01/03/2024", [](KestDateTime& d) { d.setDay(30); }, "2024-03-30 00:00:00"},
        {kBerlin, "01/03/2024 12:00:00", [](KestDateTime& d) { d.setDay(31); }, kNotADate},
        {kBerlin, "01/01/1970 01:00:00", [](KestDateTime& d) { d.setHour(0), d.setDay(2); }, "1970-01-02 00:00:00"},
        {"UTC0", "30/04/2024", [](KestDateTime& d) { d.setDay(31); }, kNotADate},
        {"UTC0", "30/04/2024", [](KestDateTime& d) { d.setDay(32); }, prefix + "Invalid Day : Exceeds 31"},
        {"UTC0", "30/04/2024", [](KestDateTime& d) { d.setDay(0); }, prefix + "Invalid Day : Exceeds 31"},
        {"UTC0", "30/04/2024", [](KestDateTime& d) { d.setMonth(2); }, kNotADate},
        {"UTC0", "30/04/2024", [](KestDateTime& d) { EXPECT_EQ(12, d.setMonth(12)); }, "2024-12-30 00:00:00"},
        {"UTC0", "30/04/2024", [](KestDateTime& d) { d.setMonth(13); }, prefix + "Invalid Month : Exceeds 12"},
        {"UTC0", "30/04/2024", [](KestDateTime& d) { d.setMonth(0); }, prefix + "Invalid Month : Exceeds 12"},
        {"UTC0", "29/02/2024", [](KestDateTime& d) { EXPECT_EQ(2028, d.setYear(2028)); }, "2028-02-29 00:00:00"},
        {"UTC0", "29/02/2024", [](KestDateTime& d) { d.setYear(2023); }, kNotADate},
        {"UTC0", "29/02/2024", [](KestDateTime& d) { d.setYear(~0U); }, kNotADate},
        {"UTC0", "30/04/2024", [](KestDateTime& d) { EXPECT_EQ(23, d.setHour(23)); }, "2024-04-30 23:00:00"},
        {"UTC0", "30/04/2024", [](KestDateTime& d) { d.setHour(24); }, prefix + "Invalid Hour : Exceeds 23"},
        {"UTC0", "30/04/2024", [](KestDateTime& d) { d.setMinute(60); }, prefix + "Invalid Minute : Exceeds 59"},
        {"UTC0", "30/04/2024", [](KestDateTime& d) { d.setSecond(60); }, prefix + "Invalid Second : Exceeds 59"},
        {"UTC0", "25/01/2023", [](KestDateTime& d) { d.add(KestDateTime::Day, 40); }, "2023-03-06 00:00:00"},
        {"UTC0", "31/03/2023", [](KestDateTime& d) { d.subtract(KestDateTime::Month, 1); }, "2023-03-03 00:00:00"},
        {"UTC0", "31/03/2024", [](KestDateTime& d) { d.subtract(KestDateTime::Month, 1); }, "2024-03-02 00:00:00"},
        {"UTC0", "29/02/2024", [](KestDateTime& d) { d.add(KestDateTime::Year, 1); }, "2025-03-01 00:00:00"},
        {"UTC0", "31/12/2024 23:59:59", [](KestDateTime& d) { d.add(KestDateTime::Second, 1); }, "2025-01-01 00:00:00"},
        {"UTC0", "01/01/2025", [](KestDateTime& d) { d.subtract(KestDateTime::Minute, 1); }, "2024-12-31 23:59:00"},
        {"UTC0", "01/01/2025", [](KestDateTime& d) { d.add(KestDateTime::Hour, ~0U); }, "2024-12-31 23:00:00"},
        {"UTC0", "01/01/2025", [](KestDateTime& d) { d.add(KestDateTime::FieldId_t(6), 9); }, "2025-01-01 00:00:00"},
        {kBerlin, "30/03/2024 12:00:00", [](KestDateTime& d) { d.add(KestDateTime::Day, 1); }, "2024-03-31 13:00:00"},
        {"UTC0", "01/01/2025", [](KestDateTime& d) { d.add(KestDateTime::Day, 0); }, prefix},
        {"UTC0", "01/01/2025", [](KestDateTime& d) { d.subtract(KestDateTime::Year, 56); },
         prefix + "Subtracting does not compute to a valid Date. Trying to subtract field,2 with -56"},
        {"UTC0", "01/01/2025", [](KestDateTime& d) { d.add(KestDateTime::Month, 2147483647); },
         prefix + "Subtracting does not compute to a valid Date. Trying to subtract field,0 with 2147483647"},
    };
    for (const auto& [zone, start, action, expected] : cases) {
        const TimeZoneGuard guard(zone);
        KestDateTime date = dateOf(start);
        EXPECT_EQ(expected, outcome(date, action)) << zone << ' ' << start;
    }
}

// The runtime is asked about the same fields right after, so that even an hour that comes twice has one answer.
void compareWithRuntime(const std::string& zone, std::int64_t instant, std::mt19937& random) {
    const std::time_t seconds = instant;
    const std::tm* local = std::localtime(&seconds);
    std::tm fields = *local;
    const auto moment = KestSupport::internal::momentOfInstant(instant);
    ASSERT_TRUE(moment) << zone << ' ' << instant;
    EXPECT_EQ(fields.tm_isdst, moment->daylightSaving) << zone << ' ' << instant;
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
    ASSERT_EQ(expectedInstant >= 0, found.has_value()) << zone << ' ' << instant;
    if (!found) return;
    EXPECT_EQ(expectedInstant, found->instant) << zone << ' ' << instant;
    EXPECT_EQ(valid, fields.tm_sec == expected.tm_sec && fields.tm_min == expected.tm_min &&
                         fields.tm_hour == expected.tm_hour && fields.tm_mday == expected.tm_mday &&
                         fields.tm_mon == expected.tm_mon)
        << zone << ' ' << instant;
    if (!valid) return;
    KestDateTime date;
    date = fields;
    EXPECT_EQ(static_cast<unsigned int>(expected.tm_wday), date.getWeekday()) << zone << ' ' << instant;
    EXPECT_EQ(static_cast<unsigned int>(expected.tm_yday + 1), date.day()) << zone << ' ' << instant;
    EXPECT_EQ(std::mktime(&(expected.tm_isdst = -1, expected)), date.getTime()) << zone << ' ' << instant;
}

TEST(DateTimeTest, EveryZoneIsTheRuntimesOwn) {
    const char* const zones[] = {kBerlin,
                                 "Europe/Berlin",
                                 "America/New_York",
                                 "Australia/Lord_Howe",
                                 "UTC0",
                                 "Asia/Kathmandu",
                                 "America/St_Johns",
                                 "Pacific/Apia",
                                 "Africa/Monrovia",
                                 "",
                                 "X24:59:59Y-24:59:59,M3.2.0,M11.1.0",
                                 "<-02>2<-01>,M3.5.0/-1,M10.5.0/0"};
    std::mt19937 random(20240229);
    // Twice through, so that each zone is also met again after others.
    for (int round = 0; round < 2; ++round) {
        for (const char* zone : zones) {
            const TimeZoneGuard guard(zone);
            for (int i = 0; i < 500; ++i)
                compareWithRuntime(zone, static_cast<std::int64_t>(random()), random);
            // The last Sundays of March and October 2024, minute by minute around the change.
            for (const std::int64_t change : {1711846800, 1729990800}) {
                for (int minute = -90; minute < 90; ++minute)
                    compareWithRuntime(zone, change + minute * 60, random);
            }
        }
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

    const std::tuple<unsigned int, std::function<void(KestDateTime&)>> stampings[] = {
        {2, [](KestDateTime& d) { d = std::string("01/01/2020"); }},
        {2, [](KestDateTime& d) { d.set(std::string("X, 1 Jan 2020 0:0:0 Z")); }},
        {1, [](KestDateTime& d) { EXPECT_ANY_THROW(d = std::string("x")); }},
        {0, [](KestDateTime& d) { EXPECT_ANY_THROW(d.set(std::string("x"))); }},
        {2, [](KestDateTime& d) { d.set(1, 1, 120, 0, 0, 0); }},
        {2, [](KestDateTime& d) { d.setDate(1, 1, 120); }},
        {1, [](KestDateTime& d) { d.add(KestDateTime::Day, 1); }},
        {0, [](KestDateTime& d) { d.setYear(2021), d.setMonth(2), d.setDay(6), d.setHour(7); }},
    };
    KestDateTime date;
    for (const auto& [stamps, action] : stampings) {
        const unsigned int before = KestDateTime::m_objectCounter;
        const unsigned int stampBefore = stampModulo28(date);
        action(date);
        EXPECT_EQ(before + stamps, KestDateTime::m_objectCounter);
        EXPECT_EQ(stamps == 0 ? stampBefore : KestDateTime::m_objectCounter % 28, stampModulo28(date));
    }
    date.set(1, 1, 70, 1, 0, 0);
    date.setHour(0);
    EXPECT_EQ(-1, date.getTime());
    EXPECT_LT(date.hash(), 28U);
    EXPECT_EQ(4U, date.getWeekday());
}

TEST(DateTimeTest, LeapYearsAreTheCalendarsAtEveryHour) {
    for (const char* zone : {"UTC0", kBerlin, "AEST-10AEDT,M10.1.0,M4.1.0/3"}) {
        const TimeZoneGuard guard(zone);
        for (const auto& [year, leap] : {std::pair(2024, true), {2023, false}, {2000, true}, {2100, false}}) {
            KestDateTime date = dateOf("01/01/" + std::to_string(year) + " 12:30:00");
            for (; static_cast<int>(date.getYear()) == year; date.add(KestDateTime::Hour, 37)) {
                EXPECT_EQ(leap, date.isLeapYear()) << zone << ' ' << show(date);
            }
        }
    }
}

/// A time_put that writes what it was asked for, and a character from outside the basic plane.
class EchoingTimePut : public std::time_put<wchar_t> {
  protected:
    iter_type do_put(iter_type out, std::ios_base& state, wchar_t, const std::tm* time, char format,
                     char) const override {
        const auto text = std::to_wstring(time->tm_hour) + static_cast<wchar_t>(format) + L'\U0001F552';
        EXPECT_TRUE(std::has_facet<std::time_put<wchar_t>>(state.getloc()));
        for (const wchar_t c : text)
            *out++ = c;
        return out;
    }
};

TEST(DateTimeTest, TextsComeFromTheLocale) {
    const TimeZoneGuard guard(kBerlin);
    const std::locale echoing(std::locale::classic(), new EchoingTimePut);
    KestDateTime date = dateOf("06/11/1994 08:49:37");
    const std::tuple<KestSupport::wstring16, std::string, char> cases[] = {
        {date.toString(std::locale::classic()), "Sun Nov  6 08:49:37 1994", 'c'},
        {date.timeToString(std::locale::classic()), "11/06/94", 'x'},
        {date.dateToString(std::locale::classic()), "08:49:37", 'X'},
        {date.weekdayName(std::locale::classic()), "Sunday", 'A'},
        {date.monthName(std::locale::classic()), "November", 'B'},
    };
    date.set(echoing);
    const KestSupport::wstring16 echoed[] = {date.toString(), date.timeToString(), date.dateToString(),
                                             date.weekdayName(), date.monthName()};
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        const auto& [text, expected, format] = cases[i];
        EXPECT_EQ(expected, narrow(text));
        EXPECT_EQ((KestSupport::wstring16{'8', static_cast<unsigned char>(format), 0xD83D, 0xDD52}), echoed[i]);
    }
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
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&wrong, thread] {
            KestDateTime date;
            for (int i = 0; i < 2000; ++i) {
                date.set(1, 1 + static_cast<unsigned int>(i % 2), 100 + static_cast<unsigned int>(i * 7 % 100), 12, 0,
                         0);
                if (date.getTime() % 86400 != 11 * 3600 || date.getHour() != 12) ++wrong;
            }
            if (thread % 2 == 0 && KestDateTime().getTime() < 0) ++wrong;
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(0, wrong);
    EXPECT_EQ(before + 4 * (1 + 2000 * 2) + 2, KestDateTime::m_objectCounter);
}

}  // namespace
