#include "times.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

#include "platform/clock.h"
#include "platform/local_time.h"

namespace kestsc {
namespace {

namespace platform = KestSupport::platform;

constexpr std::int64_t kSecond = 1'000'000'000;

std::string formatted(const char* format, const std::tm& fields) {
    char text[64];
    return {text, std::strftime(text, sizeof text, format, &fields)};
}

}  // namespace

std::string timeSince(std::int64_t then) {
    if (then == 0) return "-";
    constexpr std::int64_t kMinute = 60;
    constexpr std::int64_t kHour = 60 * kMinute;
    constexpr std::int64_t kDay = 24 * kHour;
    // The clock may have been set back.
    const std::int64_t seconds = std::max<std::int64_t>((platform::calendarTime() - then) / kSecond, 0);
    if (seconds < 2 * kMinute) return std::to_string(seconds) + " s";
    if (seconds < 2 * kHour) return std::to_string(seconds / kMinute) + " min";
    if (seconds < 2 * kDay) return std::to_string(seconds / kHour) + " h";
    return std::to_string(seconds / kDay) + " d";
}

std::string localTimeText(std::int64_t time) {
    std::tm fields{};
    if (time == 0 || !platform::localTime(time / kSecond, fields)) return "not known";
    return formatted("%Y-%m-%d %H:%M:%S", fields) + " (" + timeSince(time) + " ago)";
}

std::string jsonTime(std::int64_t time) {
    std::tm fields{};
    if (time == 0 || !platform::utcTime(time / kSecond, fields)) return "null";
    return '"' + formatted("%Y-%m-%dT%H:%M:%SZ", fields) + '"';
}

}  // namespace kestsc
