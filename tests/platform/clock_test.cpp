#include "platform/clock.h"

#include <gtest/gtest.h>

#include "kit/gate.h"

namespace {

using namespace KestSupport;

TEST(Clock, TheCoarseTimeFollowsTheExactOneAndIsNeverAhead) {
    const std::int64_t start = platform::coarseSteadyTime();
    std::int64_t before = platform::steadyTime();
    for (int i = 0; i < 10'000; ++i) {
        const std::int64_t coarse = platform::coarseSteadyTime();
        const std::int64_t exact = platform::steadyTime();
        ASSERT_LE(coarse, exact);
        ASSERT_LE(before, exact);
        before = exact;
    }
    kit::await([=] { return platform::coarseSteadyTime() > start + platform::kCoarseLag; });
    EXPECT_GT(platform::steadyTime(), start + platform::kCoarseLag);
}

}  // namespace
