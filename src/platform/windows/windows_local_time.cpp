// The C runtime reads TZ as a name, an offset and one more name ("CET-1CEST"), and without TZ uses the system's zone.
// It knows the rules of that zone only.
#include "platform/local_time.h"

#include <stdlib.h>
#include <time.h>

#include <atomic>
#include <mutex>
#include <string>

#include "platform/clock.h"
#include "platform/common/known_zones.h"
#include "platform/uninterrupted.h"
#include "platform/windows/windows_api.h"

namespace KestSupport::platform {
namespace {

// A query of the system's zone reads the registry.
constexpr std::int64_t kLookAfter = 1'000'000'000;  // nanoseconds
constinit std::atomic<std::uint32_t> g_systemZone{0};
constinit std::atomic<std::int64_t> g_latestLook{0};

// The zone for which this library called _tzset, and what the runtime computed. The lock is taken for the call: the
// runtime changes its variables one by one.
constinit std::atomic<std::uint32_t> g_zoneInUse{0};
constinit std::atomic<std::int64_t> g_offsetsInUse{0};
constinit UninterruptedMutex g_lock;

// A zone keeps its name when its rules change, and some zones have other rules in each year.
std::string textOf(const DYNAMIC_TIME_ZONE_INFORMATION& zone) {
    std::string text = "system " + ansiText(zone.TimeZoneKeyName) + ' ' + std::to_string(zone.Bias);
    const auto add = [&text](LONG bias, const SYSTEMTIME& begin) {
        text += ' ' + std::to_string(bias);
        for (const WORD part : {begin.wYear, begin.wMonth, begin.wDayOfWeek, begin.wDay, begin.wHour, begin.wMinute})
            text += ' ' + std::to_string(part);
    };
    add(zone.StandardBias, zone.StandardDate);
    add(zone.DaylightBias, zone.DaylightDate);
    return text;
}

std::uint32_t systemZone(bool ofNow) {
    const std::uint32_t known = g_systemZone.load(std::memory_order_acquire);
    const std::int64_t now = coarseSteadyTime();
    if (known != 0 && !(ofNow && now - g_latestLook.load(std::memory_order_relaxed) >= kLookAfter)) return known;
    DYNAMIC_TIME_ZONE_INFORMATION zone{};
    GetDynamicTimeZoneInformation(&zone);
    const std::uint32_t found = numberOf(knownZone(textOf(zone)));
    g_latestLook.store(now, std::memory_order_relaxed);
    g_systemZone.store(found, std::memory_order_release);
    return found;
}

std::int64_t offsetsOfRuntime() {
    return std::int64_t{_timezone} * 4 + (_daylight != 0 ? 1 : 0);
}

// The program may have called _tzset for another zone since.
bool isInUse(std::uint32_t zone) {
    return zone != 0 && g_zoneInUse.load(std::memory_order_acquire) == zone &&
           g_offsetsInUse.load(std::memory_order_relaxed) == offsetsOfRuntime();
}

std::uint32_t useZone(bool ofNow) {
    const RuntimeCall call;
    const char* const variable = std::getenv("TZ");
    const std::uint32_t zone =
        variable == nullptr ? systemZone(ofNow) : numberOf(knownZone(std::string("TZ=") + variable));
    if (!isInUse(zone)) {
        const std::lock_guard guard(g_lock);
        if (isInUse(zone)) return zone;
        _tzset();
        g_offsetsInUse.store(offsetsOfRuntime(), std::memory_order_relaxed);
        g_zoneInUse.store(zone, std::memory_order_release);
    }
    return zone;
}

}  // namespace

std::uint32_t localZone() {
    return useZone(false);
}

std::uint32_t localZoneOfNow() {
    return useZone(true);
}

bool localTime(std::int64_t instant, std::tm& result) noexcept {
    const RuntimeCall call;
    const __time64_t seconds = instant;
    return _localtime64_s(&result, &seconds) == 0;
}

bool utcTime(std::int64_t instant, std::tm& result) noexcept {
    const RuntimeCall call;
    const __time64_t seconds = instant;
    return _gmtime64_s(&result, &seconds) == 0;
}

std::int64_t instantOfLocalTime(std::tm& fields) noexcept {
    const RuntimeCall call;
    return _mktime64(&fields);
}

}  // namespace KestSupport::platform
