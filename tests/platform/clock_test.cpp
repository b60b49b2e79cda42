// The clocks, and the arithmetic of time-outs.
#include "platform/clock.h"

#include "platform/deadline.h"

using namespace KestSupport::platform;

TEST(CoarseClock, FollowsExactOne) {
    const std::int64_t start = steadyTime();
    for (std::int64_t coarse = 0, before = start; coarse <= start + kCoarseLag;) {
        coarse = coarseSteadyTime();
        const std::int64_t exact = steadyTime();
        ASSERT_LE(coarse, exact);
        ASSERT_LE(before, exact);
        before = exact;
    }
}

TEST(Deadline, RoundsRestUp) {
    constexpr Deadline::Time kMillisecond = Deadline::kMillisecond, kFar = Deadline::never().time() - 1;
    const struct {
        Deadline::Time time;
        std::uint32_t rest;
        bool passed;
    } rows[] = {{-1, 0, true},
                {0, 0, true},
                {1, 1, false},
                {kMillisecond, 1, false},
                {kMillisecond + 1, 2, false},
                {kFar, kInfinite - 1, false},
                {Deadline::never().time(), kInfinite, false}};
    for (const auto& [time, rest, passed] : rows) {
        EXPECT_EQ(Deadline::at(time).rest(0), rest) << time;
        EXPECT_EQ(Deadline::at(time).hasPassed(0), passed) << time;
    }
    EXPECT_EQ(Deadline::never().rest(kFar + 1), kInfinite);
}

TEST(Deadline, CountsFromNow) {
    EXPECT_EQ(Deadline::after(kInfinite), Deadline::never());
    const Deadline::Time before = Deadline::now();
    const Deadline::Time longest = Deadline::after(kInfinite - 1).time();
    EXPECT_GE(longest, before + (kInfinite - 1) * Deadline::kMillisecond);
    EXPECT_LE(longest, Deadline::now() + (kInfinite - 1) * Deadline::kMillisecond);
}
