// What new threads inherit from their creators, and the key of a thread at its end.
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/resource.h>

#include "kit/gate.h"
#include "platform/lambda_thread.h"
#include "platform/thread_bias.h"

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

// Destructors of later keys run after the end was announced.
TEST(Thread, HasKeyOfRunningThreadToTheEnd) {
    static bool mayRun;
    static std::uint32_t atEnd;
    pthread_key_t later{};
    ASSERT_EQ(threadKey(), threadKey());
    ASSERT_EQ(pthread_key_create(&later, [](void*) { mayRun = threadMayRun(atEnd = threadKey()); }), 0);
    std::uint32_t before = 0;
    std::thread([&] {
        before = threadKey();
        pthread_setspecific(later, &mayRun);
    }).join();
    pthread_key_delete(later);
    EXPECT_TRUE(mayRun);
    EXPECT_NE(atEnd, before) << "an owner with the former key is not waited for";
}

TEST(Thread, IsTerminatedAlthoughItsCreatorBlocksAllSignals) {
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &before);
    kit::Gate running;
    const Lambda endless([&](WaitHandle) {
        running.open();
        sleepThread(kInfinite);
    });
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    running.pass();
    EXPECT_TRUE(terminateThread(endless.handle, 0));
}

}  // namespace
