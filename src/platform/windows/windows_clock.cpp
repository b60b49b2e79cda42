#include "platform/clock.h"

#include "platform/windows/windows_api.h"

namespace KestSupport::platform {
namespace {

constexpr std::int64_t kSecond = 1'000'000'000;
// From the beginning of 1601, where the system's calendar begins, to that of 1970, in units of 100 nanoseconds.
constexpr std::int64_t kCalendarOffset = 116'444'736'000'000'000;

std::int64_t calendar(void(WINAPI* read)(FILETIME*)) noexcept {
    FILETIME now;
    read(&now);
    const auto units = static_cast<std::int64_t>(std::uint64_t{now.dwHighDateTime} << 32 | now.dwLowDateTime);
    return (units - kCalendarOffset) * 100;
}

std::int64_t step(const std::atomic<std::int64_t>& seconds) noexcept {
    return seconds.load(std::memory_order_relaxed) * kSecond;
}

}  // namespace

std::int64_t steadyTime() noexcept {
    LARGE_INTEGER ticks;
    LARGE_INTEGER perSecond;
    QueryPerformanceFrequency(&perSecond);
    QueryPerformanceCounter(&ticks);
    const std::int64_t seconds = ticks.QuadPart / perSecond.QuadPart;
    const std::int64_t rest = ticks.QuadPart % perSecond.QuadPart;
    return seconds * kSecond + rest * kSecond / perSecond.QuadPart + step(internal::g_steadyStep);
}

// The system's cheaper clocks are others than the performance counter and drift from it.
std::int64_t coarseSteadyTime() noexcept {
    return steadyTime();
}

std::int64_t calendarTime() noexcept {
    return calendar(GetSystemTimePreciseAsFileTime) + step(internal::g_calendarStep);
}

std::int64_t coarseCalendarSeconds() noexcept {
    return calendar(GetSystemTimeAsFileTime) / kSecond + internal::g_calendarStep.load(std::memory_order_relaxed);
}

}  // namespace KestSupport::platform
