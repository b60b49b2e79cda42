#include <ctime>

#include "platform/clock.h"

namespace KestSupport::platform {
namespace {

std::int64_t read(clockid_t clock) noexcept {
    timespec now{};
    clock_gettime(clock, &now);
    return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

}  // namespace

std::int64_t steadyTime() noexcept {
    return read(CLOCK_MONOTONIC);
}

std::int64_t coarseSteadyTime() noexcept {
#ifdef CLOCK_MONOTONIC_COARSE
    return read(CLOCK_MONOTONIC_COARSE);
#else
    return read(CLOCK_MONOTONIC);
#endif
}

}  // namespace KestSupport::platform
