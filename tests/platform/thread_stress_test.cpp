// Threads that work on shared objects while they are suspended, resumed and terminated at random.

#include <array>
#include <random>

#include "kit/gate.h"
#include "platform/thread.h"
#include "platform/wait.h"

using namespace KestSupport::platform;

namespace {

// The objects that the threads share. Each thread repeats every kind of operation. The end of one must leave every
// object usable. The owner of a mutex writes its id beside it, not atomically, so that ThreadSanitizer sees the order.
struct Shared {
    std::array<OwnedHandle, 3> mutexes{OwnedHandle(createMutex()), OwnedHandle(createMutex()),
                                       OwnedHandle(createMutex())};
    std::array<std::uint32_t, 3> holders{};
    OwnedHandle event{createEvent(false, false)};
    std::atomic<long> rounds{0}, faults{0};
    std::atomic<bool> end{false};

    void holdAndRelease(std::size_t first, std::size_t count) {
        const std::uint32_t self = currentThreadId();
        for (std::size_t i = first; i < first + count; ++i)
            holders[i] = self;
        if (rounds % 8 == 0) yieldThread();
        for (std::size_t i = first; i < first + count; ++i) {
            faults += holders[i] != self;
            releaseMutex(mutexes[i].get());
        }
    }
    static std::uint32_t work(void* argument) {
        auto& self = *static_cast<Shared*>(argument);
        const std::array pair{self.mutexes[0].get(), self.mutexes[1].get()};
        while (!self.end) {
            for (std::size_t i = 0; i < self.mutexes.size(); ++i)
                if (waitForOne(self.mutexes[i].get(), i == 2 ? 1 : kInfinite) != kWaitTimeout)
                    self.holdAndRelease(i, 1);
            waitForMany(pair, true, kInfinite);
            setEvent(self.event.get());
            self.holdAndRelease(0, 2);
            waitForOne(self.event.get(), 1);
            self.rounds += std::string(static_cast<std::size_t>(100 + self.rounds % 500), 'x').empty() ? 0 : 1;
        }
        return 0;
    }
};

TEST(ThreadStress, TerminationDisturbsNoOtherThread) {
    Shared shared;
    std::minstd_rand random(4711);
    std::vector<WaitHandle> workers(6, nullptr);
    for (auto& worker : workers)
        ASSERT_TRUE(createThread(&Shared::work, &shared, worker));
    for (int step = 0; step < 400; ++step) {
        WaitHandle& worker = workers[random() % workers.size()];
        if (random() % 3 == 0) {
            ASSERT_TRUE(terminateThread(worker, 1)) << "step " << step;
            closeHandle(worker);
            ASSERT_TRUE(createThread(&Shared::work, &shared, worker));
            continue;
        }
        ASSERT_TRUE(suspendThread(worker));
        // A suspended thread may hold a mutex, so the others need not progress before it is resumed.
        if (random() % 2 == 0) yieldThread();
        ASSERT_TRUE(resumeThread(worker));
        kit::await([&, seen = shared.rounds.load()] { return shared.rounds != seen; });
    }
    shared.end = true;
    EXPECT_EQ(waitForMany(workers, true, kInfinite), kWaitObject0);
    for (const WaitHandle worker : workers)
        closeHandle(worker);
    for (const auto& mutex : shared.mutexes)
        EXPECT_NE(waitForOne(mutex.get(), 0), kWaitTimeout) << "a mutex without a living owner";
    EXPECT_EQ(shared.faults, 0);
}

}  // namespace
