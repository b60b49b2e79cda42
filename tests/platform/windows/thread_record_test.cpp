// The records that the back end keeps about threads.
#include "platform/windows/windows_thread_record.h"

#include "kit/failing_calls.h"

using namespace KestSupport::platform;

TEST(ThreadRecord, IsForgottenWithoutReportOfItsThreadsEnd) {
    currentRecord();  // each new record removes those of ended threads
    const auto useLibrary = [] { std::thread(&currentRecord).join(); };
    for (const char* const step : {"reportThreadEnd", "attachThread"}) {
        const kit::FailingCalls failing(step);
        for (int i = 0; i < 3; ++i)
            useLibrary();
    }
    useLibrary();
    const auto recordsOfEnded = [] {
        int ended = 0;
        RecordGuard().find([&](const ThreadRecord& each) {
            ended += WaitForSingleObject(each.thread.get(), 0) == WAIT_OBJECT_0 ? 1 : 0;
            return false;
        });
        return ended;
    };
    EXPECT_EQ(recordsOfEnded(), 1) << "more than the latest thread's";
    struct LastUser {
        ~LastUser() { currentRecord(); }
        volatile int used = 0;
    };
    const auto useAtEnd = [](void*) -> DWORD {
        thread_local LastUser last;
        last.used = 1;
        return 0;
    };
    for (int i = 0; i < 100; ++i)
        WaitForSingleObject(SystemHandle(CreateThread(nullptr, 0, useAtEnd, nullptr, 0, nullptr)).get(), INFINITE);
    EXPECT_LT(recordsOfEnded(), 50);
}

TEST(ThreadRecord, HasAKeyOfItsOwnAfterManyThreads) {
    const std::uint64_t own = currentRecord().key;
    EXPECT_EQ(keyOfThread(kThreadKeys + own), 0U) << "the key of a thread that runs";
    EXPECT_EQ(keyOfThread(3ULL * kThreadKeys), 0U);
    EXPECT_EQ(keyOfThread(3ULL * kThreadKeys - 1), kThreadKeys - 1);
}
