// The records that the back end keeps about threads.
#include "kit/failing_calls.h"
#include "kit/gate.h"
#include "platform/wait.h"

using namespace KestSupport::platform;

// The system does not report the end of these threads. They are more than the C library keeps stacks of, so a later
// thread has the record of an ended one.
TEST(ThreadRecord, IsForgottenWithoutReportOfItsThreadsEnd) {
    const OwnedHandle turn(createMutex());
    const auto takeAndRelease = [&] {
        waitForOne(turn.get(), kInfinite);
        releaseMutex(turn.get());
    };
    {
        const kit::FailingCalls failing("attachThread");
        kit::Gate end;  // opens when all threads exist
        std::vector<std::jthread> threads;
        for (int i = 0; i < 40; ++i) {
            threads.emplace_back([&] {
                takeAndRelease();
                end.pass();
            });
        }
        end.open();
    }
    for (int i = 0; i < 300; ++i)
        std::thread(takeAndRelease).join();
    EXPECT_EQ(mutexLevels(turn.get()), 0U);
}
