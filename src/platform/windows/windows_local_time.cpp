// The C runtime reads TZ as a name, an offset and one more name ("CET-1CEST"), and without TZ uses the system's zone.
// It knows the rules of that zone only.
#include "platform/local_time.h"

#include <stdlib.h>
#include <time.h>

#include <string>

#include "platform/process_memory.h"
#include "platform/uninterrupted.h"
#include "platform/windows/windows_api.h"

namespace KestSupport::platform {
namespace {

constinit ProcessList<std::string> g_zones;
constexpr std::uint32_t kMostZones = 1000;

std::string systemZone() {
    DYNAMIC_TIME_ZONE_INFORMATION zone{};
    GetDynamicTimeZoneInformation(&zone);
    return "system " + ansiText(zone.TimeZoneKeyName) + ' ' + std::to_string(zone.Bias) + ' ' +
           std::to_string(zone.StandardBias) + ' ' + std::to_string(zone.DaylightBias);
}

}  // namespace

std::uint32_t localZone() {
    const Uninterrupted whileRuntimeIsLocked;
    const char* const variable = std::getenv("TZ");
    const std::string text = variable == nullptr ? systemZone() : std::string("TZ=") + variable;
    const auto isOurs = [&text](const std::string& known) { return known == text; };
    const auto* zone = g_zones.find(isOurs);
    if (zone == nullptr && g_zones.size() < kMostZones) zone = &g_zones.add(isOurs, text);
    _tzset();
    return zone == nullptr ? 0 : zone->number + 1;
}

std::uint32_t localZoneOfNow() {
    return localZone();
}

bool localTime(std::int64_t instant, std::tm& result) noexcept {
    const Uninterrupted whileRuntimeIsLocked;
    const __time64_t seconds = instant;
    std::tm fields{};
    if (_localtime64_s(&fields, &seconds) != 0) return false;
    result = fields;
    return true;
}

bool utcTime(std::int64_t instant, std::tm& result) noexcept {
    const Uninterrupted whileRuntimeIsLocked;
    const __time64_t seconds = instant;
    std::tm fields{};
    if (_gmtime64_s(&fields, &seconds) != 0) return false;
    result = fields;
    return true;
}

std::int64_t instantOfLocalTime(std::tm& fields) noexcept {
    const Uninterrupted whileRuntimeIsLocked;
    return _mktime64(&fields);
}

}  // namespace KestSupport::platform
