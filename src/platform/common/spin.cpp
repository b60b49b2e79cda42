#include "platform/spin.h"

#include <algorithm>
#include <thread>

#include "platform/deadline.h"

namespace KestSupport::platform::internal {

constinit std::atomic<unsigned> g_pausesPerMicrosecond{kNotMeasured};

// An interruption makes a measurement too long, so the shortest of several counts.
unsigned measurePauses() noexcept {
    unsigned result = 0;
    if (std::thread::hardware_concurrency() > 1) {
        constexpr unsigned kPauses = 100;
        Deadline::Time shortest = 1'000'000;
        for (int i = 0; i < 3; ++i) {
            const Deadline::Time start = Deadline::now();
            spinUntil(kPauses, [] { return false; });
            shortest = std::min(shortest, Deadline::now() - start);
        }
        constexpr Deadline::Time kFastest = 200;  // nanoseconds for all: a processor whose pause does nothing
        result = static_cast<unsigned>(Deadline::Time{1000} * kPauses / std::max(shortest, kFastest));
    }
    g_pausesPerMicrosecond.store(result, std::memory_order_relaxed);
    return result;
}

}  // namespace KestSupport::platform::internal
