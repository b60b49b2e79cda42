#include "sync/biased_guard.h"

#include <gtest/gtest.h>

#include <chrono>

#include "kit/gate.h"
#include "platform/thread.h"

namespace KestSupport {
namespace {

struct Owner {
    internal::LockBias bias;
    KestCriticalSectionObject lock;
    kit::Gate inside;
    std::atomic<bool> mayLeave{false};  // no gate: a thread that is terminated takes nothing with it

    static std::uint32_t run(void* argument) {
        auto& self = *static_cast<Owner*>(argument);
        const internal::BiasedGuard guard(self.bias, self.lock);
        self.inside.open();
        while (!self.mayLeave)
            platform::sleepThread(1);
        return 0;
    }
};

TEST(BiasedGuard, ANewcomerWaitsForTheOwnerUnlessThatWasTerminated) {
    for (const bool terminated : {false, true}) {
        Owner owner;
        platform::WaitHandle handle = nullptr;
        ASSERT_TRUE(platform::createThread(&Owner::run, &owner, handle));
        const platform::OwnedHandle closed(handle);
        owner.inside.pass();
        kit::Gate taken;
        std::thread newcomer([&] {
            const internal::BiasedGuard guard(owner.bias, owner.lock);
            taken.open();
        });
        EXPECT_FALSE(taken.passWithin(std::chrono::milliseconds(20)));
        EXPECT_TRUE(!terminated || platform::terminateThread(handle, 1));
        owner.mayLeave = true;
        newcomer.join();
        EXPECT_EQ(owner.lock.lockCount(), 0);
    }
}

}  // namespace
}  // namespace KestSupport
