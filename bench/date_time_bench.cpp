// Dates: the current time, reading the two usual layouts, and the text of a date.
#include <support/date_time.h>

#include <ctime>
#include <string>

#include "bench_kit.h"

#ifdef KEST_HAVE_POCO
#include <Poco/DateTime.h>
#include <Poco/DateTimeFormat.h>
#include <Poco/DateTimeParser.h>
#endif

namespace {

using KestSupport::KestDateTime;

constexpr char kDayMonthYear[] = "06/11/1994 08:49:37";
constexpr char kRfc1123[] = "Sun, 06 Nov 1994 08:49:37 GMT";

void parseOurs(benchmark::State& state, const std::string& text) {
    KestDateTime date;
    for (auto _ : state) {
        date = text;
        benchmark::DoNotOptimize(date);
    }
}

#ifdef KEST_HAVE_POCO
void parsePoco(benchmark::State& state, const std::string& format, const std::string& text) {
    int zone = 0;
    Poco::DateTime date;
    for (auto _ : state) {
        Poco::DateTimeParser::parse(format, text, date, zone);
        benchmark::DoNotOptimize(date);
    }
}
#endif

void now(benchmark::State& state) {
    for (auto _ : state) {
        const KestDateTime date;
        benchmark::DoNotOptimize(&date);
    }
}

void nowOfTheRuntime(benchmark::State& state) {
    for (auto _ : state) {
        const std::time_t seconds = std::time(nullptr);
        std::tm fields;
        localtime_r(&seconds, &fields);
        benchmark::DoNotOptimize(fields);
    }
}

void format(benchmark::State& state) {
    KestDateTime date;
    for (auto _ : state)
        benchmark::DoNotOptimize(date.toString());
}

void formatOfTheRuntime(benchmark::State& state) {
    const std::time_t seconds = std::time(nullptr);
    std::tm fields;
    localtime_r(&seconds, &fields);
    for (auto _ : state) {
        char text[128];
        benchmark::DoNotOptimize(std::strftime(text, sizeof text, "%c", &fields));
        benchmark::DoNotOptimize(text);
    }
}

}  // namespace

void KestBench::registerBenches() {
    Comparison("dates/now").ours(now).peer("localtime_r", 1.0, nowOfTheRuntime);

    Comparison dayMonthYear("dates/read day-month-year");
    dayMonthYear.ours([](benchmark::State& state) { parseOurs(state, kDayMonthYear); });
    Comparison rfc1123("dates/read RFC 1123");
    rfc1123.ours([](benchmark::State& state) { parseOurs(state, kRfc1123); });
#ifdef KEST_HAVE_POCO
    dayMonthYear.peer("Poco::DateTimeParser", 0.5,
                      [](benchmark::State& state) { parsePoco(state, "%d/%m/%Y %H:%M:%S", kDayMonthYear); });
    rfc1123.peer("Poco::DateTimeParser", 0.4,
                 [](benchmark::State& state) { parsePoco(state, Poco::DateTimeFormat::RFC1123_FORMAT, kRfc1123); });
#endif

    Comparison("dates/format").ours(format).peer("strftime", 3, formatOfTheRuntime);
}
