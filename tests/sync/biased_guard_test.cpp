// The biased guard: newcomers wait for the owner, also when a thread is terminated.
#include "sync/biased_guard.h"

#include "kit/gate.h"
#include "platform/thread.h"

namespace KestSupport {
namespace {

struct BiasedGuard : testing::Test {
    internal::LockBias bias;
    KestCriticalSectionObject lock;
    std::atomic<int> entered{0};
    std::atomic<bool> mayLeave{false};

    // Starts a thread that enters the guard and stays inside.
    platform::OwnedHandle start() {
        platform::WaitHandle handle = nullptr;
        EXPECT_TRUE(platform::createThread(&BiasedGuard::stay, this, handle));
        return platform::OwnedHandle(handle);
    }
    static std::uint32_t stay(void* argument) {
        auto& self = *static_cast<BiasedGuard*>(argument);
        const internal::BiasedGuard guard(self.bias, self.lock);
        ++self.entered;
        while (!self.mayLeave)
            platform::sleepThread(1);
        return 0;
    }
    void run(bool terminateOwner) {
        const platform::OwnedHandle owner = start();
        kit::await([this] { return entered == 1; });
        const std::uint32_t key = bias.owner;
        const platform::OwnedHandle first = start();
        kit::await([&] { return bias.owner != key; });
        ASSERT_TRUE(platform::terminateThread(first.get(), 1));
        const platform::OwnedHandle second = start();
        EXPECT_EQ(platform::waitForOne(second.get(), 20), platform::kWaitTimeout);
        EXPECT_EQ(entered, 1) << "the second newcomer repeats the wait of the first";
        if (terminateOwner) platform::terminateThread(owner.get(), 1);
        mayLeave = !terminateOwner;
        kit::await([this] { return entered == 2; });
        mayLeave = true;
        for (const auto* thread : {&owner, &second})
            platform::waitForOne(thread->get(), platform::kInfinite);
        EXPECT_EQ(lock.lockCount(), 0);
    }
};

TEST_F(BiasedGuard, WaitsForOwner) {
    run(false);
}
TEST_F(BiasedGuard, SkipsTerminatedOwner) {
    run(true);
}

}  // namespace
}  // namespace KestSupport
