#include "platform/clock.h"

#include <gtest/gtest.h>

using namespace KestSupport::platform;

TEST(Clock, TheCoarseTimeFollowsTheExactOneAndIsNeverAhead) {
    const std::int64_t start = steadyTime();
    for (std::int64_t coarse = 0, before = start; coarse <= start + kCoarseLag;) {
        coarse = coarseSteadyTime();
        const std::int64_t exact = steadyTime();
        ASSERT_LE(coarse, exact);
        ASSERT_LE(before, exact);
        before = exact;
    }
}
