// Dates: the current time, parsing of the two usual layouts, and formatting.
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

KestBench::Body reading(const char* text) {
    return [=](benchmark::State& state) { parseOurs(state, text); };
}

#ifdef KEST_HAVE_POCO
const std::string kPocoDayMonthYear = "%d/%m/%Y %H:%M:%S";

void parsePoco(benchmark::State& state, const std::string& format, const std::string& text) {
    int zone = 0;
    Poco::DateTime date;
    for (auto _ : state) {
        Poco::DateTimeParser::parse(format, text, date, zone);
        benchmark::DoNotOptimize(date);
    }
}

KestBench::Body pocoReading(const char* text) {
    const std::string& format = text == kRfc1123 ? Poco::DateTimeFormat::RFC1123_FORMAT : kPocoDayMonthYear;
    return [=](benchmark::State& state) { parsePoco(state, format, text); };
}
#else
KestBench::Body pocoReading(const char*) {
    return KestBench::kMissing;
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

// The same text in the same units: strftime writes narrow characters, and a loop widens them.
void formatOfTheRuntime(benchmark::State& state) {
    const std::time_t seconds = std::time(nullptr);
    std::tm fields;
    localtime_r(&seconds, &fields);
    for (auto _ : state) {
        char text[128];
        const std::size_t length = std::strftime(text, sizeof text, "%c", &fields);
        KestSupport::wstring16 wide(length, 0);
        for (std::size_t i = 0; i < length; ++i)
            wide[i] = static_cast<unsigned char>(text[i]);
        benchmark::DoNotOptimize(wide.data());
    }
}

}  // namespace

void KestBench::registerBenches() {
    const std::string poco = "Poco::DateTimeParser";
    Comparison("dates/now").ours(now).peer("localtime_r", 1.0, nowOfTheRuntime);
    Comparison("dates/read day-month-year").ours(reading(kDayMonthYear)).peer(poco, 0.5, pocoReading(kDayMonthYear));
    Comparison("dates/read RFC 1123").ours(reading(kRfc1123)).peer(poco, 0.4, pocoReading(kRfc1123));
    Comparison("dates/format").ours(format).peer("strftime and widening", 1.5, formatOfTheRuntime);
}
