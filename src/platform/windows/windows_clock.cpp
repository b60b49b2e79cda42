// The steady clock is the system's interrupt time without the time in which the system was suspended. Windows 10 has it
// exactly and at the last tick. An older system has the performance counter, which is exact only.
#include "platform/clock.h"

#include "platform/windows/windows_api.h"

namespace KestSupport::platform {
namespace {

constexpr std::int64_t kSecond = 1'000'000'000;
constexpr std::int64_t kUnit = 100;  // nanoseconds

using ReadClock = void(WINAPI*)(ULONGLONG* units);

void WINAPI readCounter(ULONGLONG* units) noexcept {
    constexpr LONGLONG kUnitsPerSecond = kSecond / kUnit;
    LARGE_INTEGER ticks;
    LARGE_INTEGER perSecond;
    QueryPerformanceFrequency(&perSecond);
    QueryPerformanceCounter(&ticks);
    const LONGLONG rest = ticks.QuadPart % perSecond.QuadPart * kUnitsPerSecond / perSecond.QuadPart;
    *units = static_cast<ULONGLONG>(ticks.QuadPart / perSecond.QuadPart * kUnitsPerSecond + rest);
}

constinit std::atomic<ReadClock> g_exactClock{nullptr};

// The search takes the lock of the loader, see windows_api.h.
ReadClock exactClock() noexcept {
    if (const ReadClock known = g_exactClock.load(std::memory_order_relaxed)) return known;
    void* const found = systemFunction("QueryUnbiasedInterruptTimePrecise", L"kernelbase.dll");
    const ReadClock clock = found == nullptr ? &readCounter : reinterpret_cast<ReadClock>(found);
    g_exactClock.store(clock, std::memory_order_relaxed);
    return clock;
}

[[maybe_unused]] const ReadClock g_foundDuringLoad = exactClock();

std::int64_t calendar(void(WINAPI* read)(FILETIME*)) noexcept {
    FILETIME now;
    read(&now);
    return calendarUnits(now) * kUnit;
}

std::int64_t step(const std::atomic<std::int64_t>& seconds) noexcept {
    return seconds.load(std::memory_order_relaxed) * kSecond;
}

}  // namespace

std::int64_t steadyTime() noexcept {
    ULONGLONG units = 0;
    exactClock()(&units);
    return static_cast<std::int64_t>(units) * kUnit + step(internal::g_steadyStep);
}

std::int64_t coarseSteadyTime() noexcept {
    if (exactClock() == &readCounter) return steadyTime();
    ULONGLONG units = 0;
    QueryUnbiasedInterruptTime(&units);
    return static_cast<std::int64_t>(units) * kUnit + step(internal::g_steadyStep);
}

std::int64_t calendarTime() noexcept {
    return calendar(GetSystemTimePreciseAsFileTime) + step(internal::g_calendarStep);
}

std::int64_t coarseCalendarSeconds() noexcept {
    return calendar(GetSystemTimeAsFileTime) / kSecond + internal::g_calendarStep.load(std::memory_order_relaxed);
}

}  // namespace KestSupport::platform
