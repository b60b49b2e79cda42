// The biased guard: newcomers wait for the owner, also when a thread is terminated.
#include "sync/biased_guard.h"

#include "kit/gate.h"
#include "platform/thread.h"

namespace KestSupport {
namespace {

struct Users {
    internal::LockBias bias;
    KestCriticalSectionObject lock;
    std::atomic<int> entered{0};
    std::atomic<bool> mayLeave{false};

    // Starts a thread that enters the guard and stays inside.
    platform::OwnedHandle start() {
        platform::WaitHandle handle = nullptr;
        EXPECT_TRUE(platform::createThread(&Users::stay, this, handle));
        return platform::OwnedHandle(handle);
    }
    static std::uint32_t stay(void* argument) {
        auto& self = *static_cast<Users*>(argument);
        const internal::BiasedGuard guard(self.bias, self.lock);
        ++self.entered;
        while (!self.mayLeave)
            platform::sleepThread(1);
        return 0;
    }
};

TEST(BiasedGuard, WaitsForOwnerThatMayRun) {
    for (const bool terminateOwner : {false, true}) {
        Users users;
        const platform::OwnedHandle owner = users.start();
        kit::await([&] { return users.entered == 1; });
        const std::uint32_t key = users.bias.owner;
        const platform::OwnedHandle first = users.start();
        kit::await([&] { return users.bias.owner != key; });
        ASSERT_TRUE(platform::terminateThread(first.get(), 1));
        const platform::OwnedHandle second = users.start();
        EXPECT_EQ(platform::waitForOne(second.get(), 20), platform::kWaitTimeout);
        EXPECT_EQ(users.entered, 1) << "the second newcomer repeats the wait of the first";
        if (terminateOwner) platform::terminateThread(owner.get(), 1);
        users.mayLeave = !terminateOwner;
        kit::await([&] { return users.entered == 2; });
        users.mayLeave = true;
        for (const auto* thread : {&owner, &second})
            platform::waitForOne(thread->get(), platform::kInfinite);
        EXPECT_EQ(users.lock.lockCount(), 0);
    }
}

}  // namespace
}  // namespace KestSupport
