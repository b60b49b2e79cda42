// The release of a mutex while the kernel begins to refuse the barrier in all threads. This program has only one test,
// since the process has no barrier after the first refusal.

#include <chrono>

#include "kit/failing_calls.h"
#include "kit/gate.h"
#include "platform/emulated/barrier.h"
#include "platform/emulated/wait_dispatcher.h"

using namespace KestSupport::platform;

TEST(Barrier, RefusalDelaysNoWaiterForever) {
    if (!allThreadsCanBarrier()) GTEST_SKIP() << "this kernel has none";
    const OwnedHandle mutex(createMutex());
    waitForOne(mutex.get(), 0);
    const kit::FailingCalls refused("barrierInAllThreads");
    std::thread waiter([&] { EXPECT_EQ(waitForOne(mutex.get(), kInfinite), kWaitObject0); });
    kit::await([&] { return g_contended.mayHold(mutex.get()); });
    { const Dispatcher afterQueueing(currentRecord()); }
    mutex->owner.store(WaitObject::kNoOwner);  // a release that looked for waiters too early
    waiter.join();
    EXPECT_FALSE(allThreadsCanBarrier());
    const auto begin = std::chrono::steady_clock::now();
    barrierInAllThreads();
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(kDrainTime));
}
