#include <ctime>

#include "platform/clock.h"

namespace KestSupport::platform {
namespace {

std::int64_t read(clockid_t clock, const std::atomic<std::int64_t>& step) noexcept {
    timespec now{};
    clock_gettime(clock, &now);
    return (now.tv_sec + step.load(std::memory_order_relaxed)) * 1'000'000'000 + now.tv_nsec;
}

}  // namespace

std::int64_t steadyTime() noexcept {
    return read(CLOCK_MONOTONIC, internal::g_steadyStep);
}

std::int64_t coarseSteadyTime() noexcept {
#ifdef CLOCK_MONOTONIC_COARSE
    return read(CLOCK_MONOTONIC_COARSE, internal::g_steadyStep);
#else
    return read(CLOCK_MONOTONIC, internal::g_steadyStep);
#endif
}

std::int64_t calendarTime() noexcept {
    return read(CLOCK_REALTIME, internal::g_calendarStep);
}

std::int64_t coarseCalendarSeconds() noexcept {
    return std::time(nullptr) + internal::g_calendarStep.load(std::memory_order_relaxed);
}

}  // namespace KestSupport::platform
