// The scheduling of new threads.
#include <sched.h>
#include <sys/resource.h>

#include "platform/lambda_thread.h"

namespace {

TEST(Thread, StartsWithSchedulingOfProcess) {
    const auto scheduling = [] { return std::pair(sched_getscheduler(0), getpriority(PRIO_PROCESS, 0)); };
    const auto process = scheduling();
    std::pair<int, int> creator, created;
    bool mayReset = false;
    const Lambda thread([&](WaitHandle self) {
        setThreadPriority(self, ThreadPriority::idle);
        creator = scheduling();
        const Lambda inner([&](WaitHandle) { created = scheduling(); });
        waitForOne(inner.handle, kInfinite);
        mayReset = setThreadPriority(self, ThreadPriority::normal);
    });
    waitForOne(thread.handle, kInfinite);
    EXPECT_NE(creator, process);
    EXPECT_EQ(created, mayReset ? process : creator);
}

}  // namespace
