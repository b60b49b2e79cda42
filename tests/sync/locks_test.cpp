#include "support/locks.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <thread>

#include "support/threads.h"
#include "sync/reference_count_lock.h"

namespace KestSupport {
namespace {

using namespace std::chrono_literals;

bool canBeTakenElsewhere(KestCriticalSectionObject& lock) {
    bool taken = false;
    std::thread([&] {
        taken = lock.testAndSet();
        if (taken) lock.unlock();
    }).join();
    return taken;
}

class Locks : public testing::TestWithParam<bool> {
  protected:
    KestCriticalSectionObject lock{GetParam()};
};
INSTANTIATE_TEST_SUITE_P(Modes, Locks, testing::Bool(),
                         [](const auto& mode) { return mode.param ? "CriticalSection" : "Mutex"; });

TEST_P(Locks, CountTheLevelsOfTheirOwner) {
    EXPECT_EQ(lock.lockCount(), 0);
    lock.lock();
    lock.lock();
    EXPECT_EQ(lock.lockCount(), 2);
    EXPECT_TRUE(lock.testAndSet());
    EXPECT_EQ(lock.lockCount(), 3);
    EXPECT_FALSE(canBeTakenElsewhere(lock));
    EXPECT_EQ(lock.lockCount(), 3);
    lock.unlock();
    lock.unlock();
    EXPECT_FALSE(canBeTakenElsewhere(lock));
    lock.unlock();
    EXPECT_EQ(lock.lockCount(), 0);
    EXPECT_TRUE(canBeTakenElsewhere(lock));
}

TEST_P(Locks, UnwindGivesBackEveryLevelOfTheCallerAndNoneOfOthers) {
    for (int i = 0; i < 3; ++i)
        lock.lock();
    std::thread([this] { lock.unwind(); }).join();
    EXPECT_EQ(lock.lockCount(), 3);
    lock.unwind();
    EXPECT_EQ(lock.lockCount(), 0);
    EXPECT_TRUE(canBeTakenElsewhere(lock));
    lock.unwind();
    EXPECT_EQ(lock.lockCount(), 0);
}

TEST_P(Locks, CopiesOfAUsedLockAreThatLockAndCopiesOfAFreshOneAreNot) {
    KestCriticalSectionObject beforeUse(lock);
    lock.lock();
    EXPECT_TRUE(canBeTakenElsewhere(beforeUse));
    auto copy = std::make_unique<KestCriticalSectionObject>(lock);
    EXPECT_EQ(copy->lockCount(), 1);
    EXPECT_FALSE(canBeTakenElsewhere(*copy));
    KestCriticalSectionObject assigned;
    assigned.lock();
    assigned = *copy;
    const auto& itself = assigned;
    assigned = itself;
    copy.reset();
    EXPECT_FALSE(canBeTakenElsewhere(assigned));
    assigned.unlock();
    EXPECT_TRUE(canBeTakenElsewhere(lock));
    lock = KestCriticalSectionObject(GetParam());
    EXPECT_EQ(lock.lockCount(), 0);
}

TEST_P(Locks, AGuardGivesBackTheOneLevelThatItTook) {
    {
        KestCriticalSection idle(lock, false);
        EXPECT_EQ(lock.lockCount(), 0);
        EXPECT_TRUE(idle.testAndSet());
        const KestCriticalSection second(lock, true);
        EXPECT_EQ(lock.lockCount(), 2);
        idle.unlock();
        idle.unlock();
        EXPECT_EQ(lock.lockCount(), 1);
    }
    EXPECT_EQ(lock.lockCount(), 0);
    lock.lock();
    std::thread([this] {
        KestCriticalSection failing(lock, false);
        EXPECT_FALSE(failing.testAndSet());
    }).join();
    EXPECT_EQ(lock.lockCount(), 1) << "a guard that did not get the lock gave a level back";
    lock.unlock();
}

TEST_P(Locks, AreMadeOnceWhoeverUsesThemFirst) {
    for (int round = 0; round < 50; ++round) {
        KestCriticalSectionObject fresh(GetParam());
        long counter = 0;
        const auto count = [&] {
            for (int i = 0; i < 200; ++i) {
                const KestCriticalSection guard(fresh, true);
                ++counter;
            }
        };
        std::thread first(count), second(count);
        first.join();
        second.join();
        ASSERT_EQ(counter, 400);
    }
}

TEST(MutexLock, TriesForAHundredMilliseconds) {
    KestMutexObject lock;
    lock.lock();
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(canBeTakenElsewhere(lock));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 100ms);
    lock.unlock();
}

TEST(MutexLock, AnEndedOwnersLevelsAreGone) {
    KestMutexObject lock;
    const auto takeTwiceAndEnd = [&] {
        std::thread([&] {
            lock.lock();
            lock.lock();
        }).join();
    };
    takeTwiceAndEnd();
    lock.lock();
    EXPECT_EQ(lock.lockCount(), 1);
    lock.unlock();
    EXPECT_TRUE(canBeTakenElsewhere(lock));
    takeTwiceAndEnd();
    EXPECT_FALSE(lock.testAndSet());
    EXPECT_EQ(lock.lockCount(), 0);
    EXPECT_TRUE(lock.testAndSet());
    lock.unlock();
}

TEST(LockCreation, ThreadsThatAreTheFirstToLockAnythingGetOneLock) {
    std::atomic<int> faults{0};
    for (int round = 0; round < 500; ++round) {
        internal::deleteReferenceCountLock();
        internal::createReferenceCountLock();
        KestCriticalSectionObject lock;
        std::atomic<int> ready{0}, inside{0};
        std::vector<std::thread> threads;
        for (int i = 0; i < 3; ++i) {
            threads.emplace_back([&] {
                for (++ready; ready < 3;)
                    std::this_thread::yield();
                const KestCriticalSection guard(lock, true);
                faults += inside++;
                --inside;
            });
        }
        for (std::thread& thread : threads)
            thread.join();
    }
    EXPECT_EQ(faults, 0);
}

}  // namespace
}  // namespace KestSupport
