// Tests which dates KestDateTime reads, accepts, computes and writes, and compares its zone data with the C runtime.
#include <support/date_time.h>
#include <support/locales.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <functional>
#include <locale>
#include <optional>
#include <random>
#include <tuple>

#include "kit/environment_guard.h"
#include "kit/failure_of.h"
#include "values/date/local_zone.h"

namespace {

using KestSupport::KestDateTime;
using kit::TimeZoneGuard;
using D = KestDateTime;
using Action = std::function<void(D&)>;

constexpr char kUtc[] = "UTC0";
// With the changes of New York. Some C runtimes have no other ones.
constexpr char kSummer[] = "CET-1CEST,M3.2.0,M11.1.0";
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

// Expects that each action turns the start into the expected date, or throws the expected text and changes no field.
void expectDone(const std::string& expected, const char* zone, const char* start, std::initializer_list<Action> each) {
    const TimeZoneGuard guard(zone);
    for (const Action& action : each) {
        D date = dateOf(start);
        const std::string failure = kit::failureOf([&] { action(date); });
        const bool done = failure == "no failure";
        SCOPED_TRACE(testing::Message() << zone << ' ' << start << " #" << &action - each.begin());
        EXPECT_EQ(done ? show(date) : failure, expected);
        EXPECT_TRUE(done || show(date) == show(dateOf(start))) << show(date);
    }
}

TEST(DateTime, ReadsThreeTextLayouts) {
    const auto read = [](const std::string& expected, std::initializer_list<std::string> texts) {
        for (const std::string& text : texts) {
            SCOPED_TRACE(text.substr(0, 40));
            expectDone(expected, kUtc, "05/06/2007 08:09:10", {[&](D& d) { d = text; }, [&](D& d) { d.set(text); }});
        }
    };
    read("2024-02-01 00:00:00",
         {"01/02/2024", "1/2/2024 xyz", "01/02/2024x10:20:30", std::string("1/2/2024\0 10:20", 15)});
    read("2024-02-01 09:08:00", {" 1/ 2/\t2024 9: 8"});
    read("2024-02-01 10:00:00", {"+1/02/2024 10:xx"});
    read("1970-01-01 00:00:00", {"01/01/1970"});
    read("3000-12-31 23:59:59", {"31/12/3000 23:59:59"});
    read("1994-11-06 08:49:37", {"Sun, 06 Nov 1994 08:49:37 GMT", "Sun Nov  6 08:49:37 1994\n"});
    read("1994-11-06 08:49:03", {"06/11/1994 08:49:3:", "06/11/1994 08:49:3/", "06/11/1994 08:49:3\xB7"});
    read("1994-11-06 00:00:00", {"06/11/1994T08:49:37"});
    read("1994-01-06 08:49:37", {"Sun, 6 nov 1994 8:49:37 X", "x Xxx 6 8:49:37 1994"});
    read("2024-03-02 10:00:00", {"Sat, 31 Feb 2024 10:00:00 CET"});
    read("2024-01-01 00:00:01", {"Sat, 31 Dec 2023 23:59:61 GMT"});
    read(kPrefix + "Incorrect DateTime format",
         {"", "1 /2/2024", "1/2", "/", "1/2/99999999999", "1/2/2024 2147483648", "01/02/2024 10:20:300",
          std::string("1/2\0/2024", 9), std::string(100000, '/'), std::string(100000, '\xFF'),
          "Wednesday November 6 1:2:3 1994", "Sun Nov  6 08:49:37 1994  ", "Sun Nov  6 08:49:37"});
    read(kNotADate, {"31/02/2024", "01/02/24", "0/1/2024", "1/0/2024", "1/-2147483648/2024", "1/1/-2147483648",
                     "1/2/2024 24:00:00", "1/2/2024 -1", "1/2/2024 10:60", "31/12/1969 23:59:59", "01/01/3001",
                     "x Feb 30 1:2:3 1994", "Sat, 1 Jan 3001 0:00:00 GMT", "Sat, 0 Jan 1970 0:00:00 GMT",
                     "Sat, 2147483647 Dec 9 9:9:9 Z"});
    read(kPrefix + "Incorrect RFC1123 DateTime format",
         {"Sun, 06 Nov 1994 08:49:37", "Sun, 06 Nov 1994 08:49:37 GMT ", "01/02/2024,", ",",
          "Sundaymor, 6 Nov 1994 8:9:7 G", "S, 6 Nov 1994 8:9:7 Greenwichs"});
    KestDateTime date;
    std::string message = "untouched";
    for (const std::string text : {"01/02/2024", "Sat, 31 Feb 2024 10:00:00 CET"})
        EXPECT_TRUE(date.setDateTimeFromStrImpl(text, message)) << text;
    EXPECT_EQ(message, "untouched");
    EXPECT_FALSE(date.setDateTimeFromStrImpl("01/02", message));
    EXPECT_EQ(message, "Incorrect DateTime format");
}

TEST(DateTime, SetsAndAddsFields) {
    expectDone(kNotADate, kUtc, "29/02/2024", {[](D& d) { d.setYear(~0U); }, [](D& d) { d.setYear(2023); }});
    expectDone(kNotADate, kUtc, "30/04/2024", {[](D& d) { d.setDay(31); }, [](D& d) { d.setMonth(2); }});
    expectDone(kNotADate, kSummer, "01/03/2024 12:00:00", {[](D& d) { d.setDay(10); }});
    expectDone("2024-03-09 00:00:00", kSummer, "01/03/2024", {[](D& d) { EXPECT_EQ(d.setDay(9), 9); }});
    expectDone("2024-12-30 23:00:00", kUtc, "30/04/2024 23:00:00", {[](D& d) { d.setMonth(12); }});
    expectDone("2028-04-30 00:00:00", kUtc, "30/04/2024", {[](D& d) { d.setYear(2028); }});
    expectDone("2024-04-30 23:00:00", kUtc, "30/04/2024", {[](D& d) { d.setHour(23); }});
    expectDone("2024-04-30 00:59:00", kUtc, "30/04/2024", {[](D& d) { d.setMinute(59); }});
    expectDone("2024-04-30 00:00:59", kUtc, "30/04/2024", {[](D& d) { d.setSecond(59); }});
    const auto refused = [](const std::string& why, std::initializer_list<Action> actions) {
        expectDone(kPrefix + why, kUtc, "01/01/2025", actions);
    };
    refused("Invalid Day : Exceeds 31", {[](D& d) { d.setDay(32); }, [](D& d) { d.setDay(0); }});
    refused("Invalid Month : Exceeds 12", {[](D& d) { d.setMonth(13); }, [](D& d) { d.setMonth(0); }});
    refused("Invalid Hour : Exceeds 23", {[](D& d) { d.setHour(24); }});
    refused("Invalid Minute : Exceeds 59", {[](D& d) { d.setMinute(60); }});
    refused("Invalid Second : Exceeds 59", {[](D& d) { d.setSecond(60); }});
    const std::string noSum = "Subtracting does not compute to a valid Date. Trying to subtract field,";
    refused(noSum + "2 with -56", {[](D& d) { d.subtract(D::Year, 56); }});
    refused(noSum + "0 with 2147483647", {[](D& d) { d.add(D::Month, 2147483647); }});
    refused("", {[](D& d) { d.add(D::Day, 0); }});
    expectDone("2024-03-02 00:00:00", kUtc, "31/03/2024", {[](D& d) { d.subtract(D::Month, 1); }});
    expectDone("2025-03-01 00:00:00", kUtc, "29/02/2024", {[](D& d) { d.add(D::Year, 1); }});
    expectDone("2025-01-01 00:00:00", kUtc, "31/12/2024 23:59:59", {[](D& d) { d.add(D::Second, 1); }});
    expectDone("2024-12-31 22:59:00", kUtc, "01/01/2025", {[](D& d) { d.subtract(D::Minute, 1).add(D::Hour, ~0U); }});
    expectDone("2025-01-01 00:00:00", kUtc, "01/01/2025", {[](D& d) { d.add(D::FieldId_t(6), 9); }});
    expectDone("2024-03-10 13:00:00", kSummer, "09/03/2024 12:00:00", {[](D& d) { d.add(D::Day, 1); }});
}

TEST(DateTime, SetsWholeDates) {
    std::tm leapSecond{};
    leapSecond.tm_sec = 60;
    leapSecond.tm_mday = 1;
    leapSecond.tm_year = 100;
    const std::string no = kPrefix + kNotADate;
    expectDone("2024-02-01 03:04:05", kUtc, "01/01/2000", {[](D& d) { d.set(1, 2, 124, 3, 4, 5); }});
    expectDone(no, kUtc, "01/01/2000",
               {[](D& d) { d.set(1, 2, 2024, 0, 0, 0); }, [](D& d) { d.set(~0U, 2, 124, 0, 0, 0); },
                [](D& d) { d.setDate(29, 2, 123); }, [&](D& d) { d.set(leapSecond); }});
    expectDone(no, kSummer, "01/01/2000", {[](D& d) { d.setDate(1, 7, 124); }});
    expectDone("2024-01-01 00:00:00", kSummer, "01/01/2000", {[](D& d) { d.setDate(1, 1, 124); }});
    expectDone(kNotADate, kSummer, "01/01/2000",
               {[](D& d) { d = std::string("10/03/2024 02:30:00"); }, [&](D& d) { d = leapSecond; }});
    // After setHour the value has no instant, and setDay makes a date of it again.
    expectDone("1970-01-02 00:00:00", kSummer, "01/01/1970 01:00:00", {[](D& d) { d.setDay(d.setHour(0) + 2U); }});
}

// Returns the seconds from 1970 to these fields of any size, without a zone.
std::int64_t civilSeconds(const std::tm& fields) {
    using namespace std::chrono;
    const auto month = year(1900) / January + months(fields.tm_year * 12 + fields.tm_mon);
    const sys_seconds midnight = sys_days(month / 1) + days(fields.tm_mday - 1);
    return (midnight + hours(fields.tm_hour) + minutes(fields.tm_min) + seconds(fields.tm_sec))
        .time_since_epoch()
        .count();
}

// Some C runtimes know no instant before 1970.
std::optional<std::tm> fieldsAt(std::time_t instant) {
    const std::tm* const fields = std::localtime(&instant);
    return fields == nullptr ? std::nullopt : std::optional(*fields);
}

// Returns the instant of mktime, or nothing if the runtime knows no such instant. Of two instants with that local time
// it returns the one in standard time (in daylight saving, if tm_isdst asks for that), and of two such instants the
// later one.
std::optional<std::int64_t> runtimeInstant(std::tm fields) {
    const bool wanted = fields.tm_isdst > 0;
    const int extraSeconds = fields.tm_sec - std::clamp(fields.tm_sec, 0, 59);
    fields.tm_sec -= extraSeconds;
    std::tm normalised = fields;
    const std::time_t found = std::mktime(&normalised);
    const std::optional<std::tm> known = fieldsAt(found);
    if (!known) return {};
    const std::int64_t civil = civilSeconds(*known);
    const bool skipped = civilSeconds(fields) != civil;
    std::pair best(normalised.tm_isdst == wanted, found);
    for (const std::time_t distance : {900, 1800, 3600, 7200, 179998}) {
        for (const std::time_t instant : {found - distance, found + distance}) {
            const std::optional<std::tm> other = fieldsAt(instant);
            if (!skipped && other && civilSeconds(*other) == civil)
                best = std::max(best, std::pair(other->tm_isdst == wanted, instant));
        }
    }
    return best.second + extraSeconds;
}

void compareWithRuntime(std::int64_t instant, std::mt19937& random) {
    std::tm fields = *fieldsAt(instant);
    const auto moment = KestSupport::internal::momentOfInstant(instant);
    ASSERT_TRUE(moment);
    EXPECT_EQ(moment->daylightSaving, fields.tm_isdst);
    fields.tm_isdst = static_cast<int>(random() % 3) - 1;
    if (random() % 4 == 0) {
        fields.tm_mday += static_cast<int>(random() % 100) - 50;
        fields.tm_mon += static_cast<int>(random() % 40) - 20;
        fields.tm_sec += static_cast<int>(random() % 3) * 10000000;
    }
    const auto found = KestSupport::internal::momentOfFields(fields);
    const bool valid = KestSupport::internal::isLocalTime(fields);
    const std::optional<std::time_t> expectedInstant = runtimeInstant(fields);
    if (!expectedInstant) return;
    ASSERT_EQ(found.has_value(), *expectedInstant >= 0);
    if (!found) return;
    const std::tm expected = *fieldsAt(*expectedInstant);
    EXPECT_EQ(found->instant, *expectedInstant);
    const auto tie = [](const std::tm& t) { return std::tie(t.tm_sec, t.tm_min, t.tm_hour, t.tm_mday, t.tm_mon); };
    EXPECT_EQ(valid, tie(fields) == tie(expected));
    if (!valid) return;
    KestDateTime date;
    date = fields;
    EXPECT_EQ(date.getWeekday(), static_cast<unsigned int>(expected.tm_wday));
    EXPECT_EQ(date.day(), static_cast<unsigned int>(expected.tm_yday + 1));
    fields.tm_isdst = -1;
    EXPECT_EQ(date.getTime(), runtimeInstant(fields));
}

TEST(DateTime, AgreesWithTheRuntime) {
    std::mt19937 random(20240229);
    const auto compare = [&](const char* zone) {
        const TimeZoneGuard guard(zone);
        SCOPED_TRACE(zone);
        for (int times = 0; times < 500; ++times)
            compareWithRuntime(static_cast<std::int64_t>(random()), random);
        // The changes of the first two zones in 2024, minute by minute.
        for (const std::int64_t change : {1710032400, 1711846800, 1729990800, 1730592000}) {
            for (int second = -5400; second < 5400; second += 60)
                compareWithRuntime(change + second, random);
        }
    };
    for (int round = 0; round < 2; ++round) {  // in the second one, other zones have been used before each zone
        for (const char* zone :
             {kSummer, "CET-1CEST,M3.5.0,M10.5.0/3", "Europe/Berlin", "America/New_York", "Australia/Lord_Howe", kUtc,
              "Asia/Kathmandu", "America/St_Johns", "Pacific/Apia", "Africa/Monrovia", "",
              "X24:59:59Y-24:59:59,M3.2.0,M11.1.0", "<-02>2<-01>,M3.5.0/-1,M10.5.0/0"})
            compare(zone);
    }
}

TEST(DateTime, ComparesInstants) {
    const TimeZoneGuard guard(kSummer);
    const D early = dateOf("06/11/1994 08:49:36"), late = dateOf("06/11/1994 08:49:37");
    EXPECT_EQ(late.getTime(), 784108177);
    const auto compared = [](const D& a, const D& b) {
        return std::string(a < b ? "<" : "") + (a <= b ? "<=" : "") + (a == b ? "==" : "") + (a != b ? "!=" : "") +
               (a >= b ? ">=" : "") + (a > b ? ">" : "");
    };
    EXPECT_EQ(compared(early, late), "<<=!=");
    EXPECT_EQ(compared(late, early), "!=>=>");
    EXPECT_EQ(compared(late, D(late)), "<===>=");
    for (const unsigned year : {2024U, 2023U, 2000U, 2100U})
        EXPECT_EQ(dateOf("31/12/" + std::to_string(year)).isLeapYear(), year == 2024 || year == 2000) << year;
    const std::int64_t before = std::time(nullptr);
    const D now;
    EXPECT_LE(before, now.getTime());
    EXPECT_LE(now.getTime(), std::time(nullptr));
}

TEST(DateTime, ConvertsInstantsAndRfc3339) {
    const auto read = [](const std::string& text) {
        std::string found;
        const std::string failure = kit::failureOf([&] { found = D::fromRfc3339(text).toRfc3339(); });
        return failure == "no failure" ? found : failure;
    };
    const std::string wrong = kPrefix + "Incorrect RFC3339 DateTime format";
    const std::tuple<const char*, std::string, std::string> rows[] = {
        {kSummer, "1994-11-06T08:49:37Z", "1994-11-06T09:49:37+01:00"},
        {kSummer, "2024-07-01t00:30:00.999999999+05:45", "2024-06-30T20:45:00+02:00"},
        {kSummer, "2023-12-31 23:59:60z", "2024-01-01T01:00:00+01:00"},
        {kUtc, "1969-12-31T23:59:59Z", kNotADate},
        {kUtc, "3001-01-01T00:00:00Z", kNotADate},
        {"EST5", "1970-01-01T00:00:00-00:00", "1969-12-31T19:00:00-05:00"},
        {"<-0044>0:44:30", "2024-02-29T23:59:59-23:59", "2024-03-01T23:14:59-00:44"}};
    const bool knowsAnyZone = fieldsAt(-1).has_value();  // some C runtimes have no such dates and zones
    for (const auto& [zone, text, expected] : rows) {
        if (!knowsAnyZone && zone != kUtc && zone != kSummer) continue;
        const TimeZoneGuard guard(zone);
        EXPECT_EQ(read(text), expected) << text;
    }
    const TimeZoneGuard guard(kSummer);
    const std::string good = "2024-02-29T12:34:56.7+01:00";
    for (std::size_t i = 0; i < good.size(); ++i) {
        std::string text = good;
        text[i] = 'x';
        EXPECT_EQ(read(text), wrong) << text;
        EXPECT_EQ(read(good.substr(0, i)), wrong) << i;
    }
    for (const char* text :
         {"2023-02-29T00:00:00Z", "2024-00-01T00:00:00Z", "2024-13-01T00:00:00Z", "2024-01-00T00:00:00Z",
          "2024-01-01T24:00:00Z", "2024-01-01T00:60:00Z", "2024-01-01T00:00:61Z", "2024-01-01T00:00:00.Z",
          "2024-01-01T00:00:00+24:00", "2024-01-01T00:00:00+00:60", "2024-01-01T00:00:00Z "})
        EXPECT_EQ(read(text), wrong) << text;

    using std::chrono::system_clock, std::chrono::milliseconds, std::chrono::seconds;
    const D date = D::fromTimePoint(system_clock::time_point(milliseconds(784108177999)));
    EXPECT_EQ(show(date), "1994-11-06 08:49:37");
    EXPECT_EQ(date.toTimePoint(), system_clock::time_point(milliseconds(784108177000)));
    EXPECT_EQ(date.toRfc3339Utc(), "1994-11-06T07:49:37Z");
    {
        const TimeZoneGuard other(kUtc);
        fieldsAt(0);  // the runtime uses that zone from now on
    }
    EXPECT_EQ(dateOf("06/02/2777 12:00:00").toRfc3339Utc(), "2777-02-06T11:00:00Z");
    std::tm utc = date.toUtc();
    EXPECT_EQ(D::fromUtc(utc), date);
    EXPECT_EQ(D::fromTime(1730590200).getTime(), 1730593800) << "of two hours the one in standard time";
    utc.tm_mday = 31;
    D without;
    without.set(1, 1, 70, 1, 0, 0);
    without.setHour(0);
    const auto lastOfClock = std::chrono::floor<seconds>(system_clock::time_point::max()).time_since_epoch().count();
    for (const Action& action : {Action([&](D&) { D::fromUtc(utc); }), Action([](D&) { D::fromTime(-1); }),
                                 Action([](D& d) { d.toRfc3339(); }), Action([](D& d) { d.toTimePoint(); }),
                                 Action([&](D&) { D::fromTime(lastOfClock + 1).toTimePoint(); })})
        EXPECT_EQ(kit::failureOf([&] { action(without); }), kNotADate);
}

TEST(DateTime, StampsEveryChange) {
    const TimeZoneGuard guard(kSummer);
    D date;
    EXPECT_EQ(D(date).hash(), date.hash());
    const auto expectStamps = [&date](unsigned int stamps, const Action& action) {
        const unsigned int stampsBefore = D::m_objectCounter;
        const unsigned int hashBefore = date.hash();
        action(date);
        EXPECT_EQ(D::m_objectCounter, stampsBefore + stamps);
        // The hash is (time * 41358 + stamp) mod 28.
        const auto time = static_cast<unsigned long long>(date.getTime());
        EXPECT_EQ(date.hash(), stamps == 0 ? hashBefore : (time % 28 * 41358 + D::m_objectCounter) % 28);
    };
    expectStamps(2, [](D& d) { d.set(std::string("X, 1 Jan 2020 0:0:0 Z")); });
    expectStamps(1, [](D& d) { EXPECT_ANY_THROW(d = std::string("x")); });
    expectStamps(0, [](D& d) { EXPECT_ANY_THROW(d.set(std::string("x"))); });
    expectStamps(1, [](D& d) { d.add(D::Day, 1); });
    date.set(1, 1, 70, 1, 0, 0);
    date.setHour(0);
    EXPECT_EQ(date.getTime(), -1);
    EXPECT_LT(date.hash(), 28U);
    EXPECT_EQ(date.getWeekday(), 4U);
}

// Writes the hour, the format letter, and a character outside the basic plane.
class EchoingTimePut : public std::time_put<wchar_t> {
    iter_type do_put(iter_type out, std::ios_base&, wchar_t, const std::tm* time, char format, char) const override {
        for (int times = format == 'B' ? 50 : 1; times > 0; --times)
            for (const wchar_t c : std::to_wstring(time->tm_hour) + static_cast<wchar_t>(format) + L"\U0001F552")
                *out++ = c;
        return out;
    }
};

TEST(DateTime, WritesTextsOfItsLocale) {
    const TimeZoneGuard guard(kSummer);
    D date = dateOf("06/11/1994 08:49:37");
    const auto texts = [](D& d) {
        std::string all;
        for (const auto& text :
             {d.toString(), d.timeToString(), d.dateToString(), d.weekdayName(), d.monthName(), d.toGMTString()}) {
            for (const unsigned short unit : text)
                all += unit < 128 ? static_cast<char>(unit) : unit == 0xD83D ? '<' : '>';
            all += '|';
        }
        return all;
    };
    const auto dateAndTime = [](int day, int month, int year, int weekday, int hour, int rest) {
        std::tm fields{};
        std::tie(fields.tm_mday, fields.tm_mon, fields.tm_year, fields.tm_wday) = std::tie(day, month, year, weekday);
        std::tie(fields.tm_hour, fields.tm_min, fields.tm_sec) = std::tuple(hour, rest / 60, rest % 60);
        char text[64];
        return std::string(text, std::strftime(text, sizeof text, "%c", &fields));  // not the same on all systems
    };
    const std::string plain = dateAndTime(6, 10, 94, 0, 8, 49 * 60 + 37) + "|11/06/94|08:49:37|Sunday|November|" +
                              dateAndTime(6, 10, 94, 0, 7, 49 * 60 + 37) + "|";
    date.set(std::locale(std::locale::classic(), new EchoingTimePut));
    KestDateTime copy(date);
    EXPECT_EQ(texts(copy), plain) << "a copy has the global locale";
    date = copy;
    std::string months;
    for (int times = 0; times < 50; ++times)
        months += "8B<>";
    EXPECT_EQ(texts(date), "8c<>|8x<>|8X<>|8A<>|" + months + "|7c<>|") << "an assignment keeps the locale";
    copy.set(1, 1, 70, 1, 0, 0);
    copy.setHour(0);
    const std::string first = dateAndTime(1, 0, 70, 4, 0, 0);
    EXPECT_EQ(texts(copy), first + "|01/01/70|00:00:00|Thursday|January|" + first + "|");
    const std::locale byDefault = KestSupport::KestLocaleFactory::getDefaultLocale(false);
    const std::locale withItsFacets(byDefault, new std::ctype<char>);  // not the same locale
    for (int month = 0; month < 12; ++month) {
        D each = dateOf(std::to_string(3 + 2 * month) + '/' + std::to_string(1 + month) + "/2004 " +
                        std::to_string(2 * month) + ":5:59");
        const auto textsBy = [&each](const std::locale& locale) {
            each.set(locale);
            return std::vector{each.toString(), each.timeToString(), each.dateToString(), each.weekdayName(),
                               each.monthName()};
        };
        EXPECT_EQ(textsBy(byDefault), textsBy(withItsFacets));
    }
}

TEST(DateTime, SharesZoneDataBetweenThreads) {
    const TimeZoneGuard guard(kSummer);
    constexpr unsigned int kChanges = 4000;
    const auto before = D::m_objectCounter;
    const auto change = [] {
        D date;
        for (unsigned int i = 0; i < kChanges; ++i) {
            date.set(1, 1 + i % 2, 100 + i * 7 % 100, 12, 0, 0);
            EXPECT_EQ(date.getTime() % 86400, 11 * 3600);
        }
    };
    std::thread other(change);
    change();
    other.join();
    EXPECT_EQ(D::m_objectCounter, before + 2 * (1 + 2 * kChanges)) << "one stamp for a date, two for each change";
}

}  // namespace
