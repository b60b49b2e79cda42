#include "support/locks.h"

#include <chrono>

#include "kit/failing_calls.h"

namespace KestSupport {
namespace {

bool canBeTakenElsewhere(KestCriticalSectionObject& lock) {
    bool taken = false;
    std::thread([&] { taken = KestCriticalSection(lock, false).testAndSet(); }).join();
    return taken;
}

// A lock that another file's initialisation takes must not be made again after that.
constinit KestCriticalSectionObject g_section(true);
constinit KestMutexObject g_mutex;

class Locks : public testing::TestWithParam<bool> {
  protected:
    KestCriticalSectionObject lock{GetParam()};
};
INSTANTIATE_TEST_SUITE_P(Modes, Locks, testing::Bool(),
                         [](const auto& mode) { return mode.param ? "CriticalSection" : "Mutex"; });

TEST_P(Locks, CountTheLevelsOfTheirOwnerAndUnwindThoseOfTheCallerOnly) {
    {
        const kit::FailingCalls failing(GetParam() ? "createCriticalSection" : "createMutex");
        EXPECT_THROW(lock.lock(), std::bad_alloc) << "rather than a lock that excludes nobody";
    }
    EXPECT_EQ(lock.lockCount(), 0);
    lock.lock();
    {
        KestCriticalSection first(lock, false);
        EXPECT_TRUE(first.testAndSet());
        const KestCriticalSection second(lock, true);
        EXPECT_EQ(lock.lockCount(), 3);
        first.unlock();
    }
    EXPECT_FALSE(canBeTakenElsewhere(lock));
    EXPECT_EQ(lock.lockCount(), 1) << "each guard gives back the one level that it took";
    lock.unlock();
    EXPECT_TRUE(canBeTakenElsewhere(lock));
    lock.unlock();
    EXPECT_EQ(lock.lockCount(), 0) << "a stray unlock";
    for (int i = 0; i < 3; ++i)
        lock.lock();
    std::thread([this] {
        lock.unwind();
        lock.unlock();
    }).join();
    EXPECT_EQ(lock.lockCount(), 3);
    lock.unwind();
    EXPECT_EQ(lock.lockCount(), 0);
    EXPECT_TRUE(canBeTakenElsewhere(lock));
}

TEST_P(Locks, CopiesOfAUsedLockAreThatLockAndCopiesOfAFreshOneAreNot) {
    KestCriticalSectionObject beforeUse(lock), assigned;
    lock.lock();
    assigned.lock();
    EXPECT_TRUE(canBeTakenElsewhere(beforeUse));
    {
        const KestCriticalSectionObject copy(lock);
        assigned = copy;
    }
    const auto& itself = assigned;
    assigned = itself;
    EXPECT_FALSE(canBeTakenElsewhere(assigned));
    lock = KestCriticalSectionObject(GetParam());
    EXPECT_EQ(lock.lockCount(), 0);
    assigned.unlock();
    EXPECT_TRUE(canBeTakenElsewhere(assigned));
}

TEST_P(Locks, ThreadsThatAreTheFirstToLockAnythingGetOneLock) {
    for (int round = 0; round < 500; ++round) {
        KestCriticalSectionObject fresh(GetParam());
        std::atomic<int> ready{0};
        long counter = 0;
        std::vector<std::jthread> threads;
        for (int t = 0; t < 3; ++t) {
            threads.emplace_back([&] {
                for (++ready; ready < 3;)
                    std::this_thread::yield();
                for (int i = 0; i < 100; ++i) {
                    const KestCriticalSection guard(fresh, true);
                    ++counter;
                }
            });
        }
        threads.clear();
        ASSERT_EQ(counter, 300);
    }
}

TEST_P(Locks, AnEndedOwnersLevelsAreGoneForAMutexAndStayForACriticalSection) {
    const auto takeTwiceAndEnd = [this] {
        std::thread([this] {
            lock.lock();
            lock.lock();
        }).join();
    };
    takeTwiceAndEnd();
    EXPECT_FALSE(lock.testAndSet());
    EXPECT_EQ(lock.testAndSet(), !GetParam());
    EXPECT_EQ(lock.lockCount(), GetParam() ? 2 : 1);
    if (GetParam()) return;
    lock.unlock();
    takeTwiceAndEnd();
    lock.lock();
    EXPECT_EQ(lock.lockCount(), 1);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(canBeTakenElsewhere(lock));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(100)) << "a mutex is tried as long";
    lock.unlock();
}

}  // namespace
}  // namespace KestSupport
