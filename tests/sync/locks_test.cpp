// Locks in both modes: levels, copies, creation by the first use, and owners that end.
#include "support/locks.h"

#include <chrono>
#include <mutex>
#include <new>
#include <utility>

#include "kit/failing_calls.h"
#include "kit/gate.h"

namespace {

using namespace KestSupport;
using namespace std::chrono_literals;

bool canBeTakenElsewhere(KestCriticalSectionObject& lock) {
    bool taken = false;
    std::thread([&] { taken = KestCriticalSection(lock, false).testAndSet(); }).join();
    return taken;
}

// Compiles only if locks at namespace scope need no dynamic initialisation.
constinit KestCriticalSectionObject g_section(true);
constinit KestMutexObject g_mutex;

struct Locks : testing::TestWithParam<bool> {
    void take(int levels) {
        for (; levels > 0; --levels)
            lock.lock();
    }
    const bool isSection = GetParam();
    KestCriticalSectionObject lock{isSection};
};
INSTANTIATE_TEST_SUITE_P(Modes, Locks, testing::Bool(),
                         [](const auto& mode) { return mode.param ? "CriticalSection" : "Mutex"; });

TEST_P(Locks, CountLevelsOfOwner) {
    {
        const kit::FailingCalls failing(isSection ? "createCriticalSection" : "createMutex");
        EXPECT_THROW(lock.lock(), std::bad_alloc);
    }
    EXPECT_EQ(lock.lockCount(), 0);
    take(1);
    {
        KestCriticalSection first(lock, false);
        EXPECT_TRUE(first.testAndSet());
        const KestCriticalSection second(lock, true);
        EXPECT_EQ(lock.lockCount(), 3);
        first.unlock();
    }
    EXPECT_FALSE(canBeTakenElsewhere(lock));
    EXPECT_EQ(lock.lockCount(), 1) << "each guard releases its own level";
    lock.unlock();
    EXPECT_TRUE(canBeTakenElsewhere(lock));
    lock.unlock();
    EXPECT_EQ(lock.lockCount(), 0) << "a level that no thread has is not released";
}

TEST_P(Locks, UnwindLevelsOfCaller) {
    take(3);
    std::thread([this] {
        lock.unwind();
        lock.unlock();
    }).join();
    EXPECT_EQ(lock.lockCount(), 3);
    lock.unwind();
    EXPECT_EQ(lock.lockCount(), 0);
    EXPECT_TRUE(canBeTakenElsewhere(lock));
}

TEST_P(Locks, ShareUsedLockWithCopies) {
    KestCriticalSectionObject copyOfUnused(lock), assigned;
    lock.lock();
    assigned.lock();
    EXPECT_TRUE(canBeTakenElsewhere(copyOfUnused));
    {
        const KestCriticalSectionObject copy(lock);
        assigned = copy;
    }
    const auto& itself = assigned;
    assigned = itself;
    EXPECT_FALSE(canBeTakenElsewhere(assigned));
    lock = KestCriticalSectionObject(isSection);
    EXPECT_EQ(lock.lockCount(), 0);
    assigned.unlock();
    EXPECT_TRUE(canBeTakenElsewhere(assigned));
}

TEST_P(Locks, UseFirstOfTwoCreations) {
    static KestCriticalSectionObject* s_creating;
    s_creating = &lock;
    platform::setFaultHook([](const char*) noexcept {
        if (auto* const created = std::exchange(s_creating, nullptr)) created->lock();
        return 0;
    });
    lock.lock();
    platform::setFaultHook(nullptr);
    EXPECT_EQ(lock.lockCount(), 2);
}

TEST_P(Locks, LoseEndedOwnerInMutexModeOnly) {
    std::thread([this] { take(2); }).join();
    EXPECT_FALSE(lock.testAndSet());
    EXPECT_EQ(lock.testAndSet(), !isSection);
    EXPECT_EQ(lock.lockCount(), isSection ? 2 : 1);
    if (isSection) return;
    lock.unlock();
    std::thread([this] { take(2); }).join();
    lock.lock();
    EXPECT_EQ(lock.lockCount(), 1);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(canBeTakenElsewhere(lock));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(100));
    lock.unlock();
}

TEST_P(Locks, WorkWithStandardGuards) {
    using Guard = std::unique_lock<KestCriticalSectionObject>;
    KestMutexObject other;
    kit::Gate held, release;
    std::jthread holder([&] {
        const std::scoped_lock both(lock, other);
        held.open();
        release.pass();
    });
    held.pass();
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(Guard(lock, std::try_to_lock));
    EXPECT_FALSE(Guard(lock, std::chrono::hours::min()));
    EXPECT_FALSE(Guard(lock, std::chrono::system_clock::now() - 1h));
    EXPECT_FALSE(Guard(lock, 20ms));
    EXPECT_FALSE(Guard(lock, begin + 30ms));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 30ms);
    release.open();
    EXPECT_TRUE(Guard(lock, std::chrono::hours::max()));
    EXPECT_TRUE(Guard(lock, std::chrono::system_clock::time_point::max()));
    EXPECT_EQ(lock.lockCount(), 0);
    std::thread([&] { other.lock(); }).join();
    EXPECT_TRUE(other.try_lock()) << "the owner has ended";
    EXPECT_EQ(other.lockCount(), 1);
}

}  // namespace
