// Lock factory: one lock for each name, copies, and the factory's own lock.
#include "support/lock_factory.h"

#include <functional>
#include <utility>

#include "kit/allocations.h"
#include "kit/failure_of.h"
#include "kit/gate.h"

namespace {

using namespace KestSupport;

// Stops a thread in its next allocation.
struct Hold {
    kit::Gate inside, end;
};
thread_local Hold* t_hold = nullptr;

bool stopOnce(std::size_t) {
    if (Hold* const hold = std::exchange(t_hold, nullptr)) {
        hold->inside.open();
        hold->end.pass();
    }
    return true;
}

template <typename Lock>
struct LockFactory : testing::Test {};
using Kinds = testing::Types<KestCriticalSectionObject, KestMutexObject, KestReadWriteLock>;
TYPED_TEST_SUITE(LockFactory, Kinds);

TYPED_TEST(LockFactory, KeepsOneLockForEachName) {
    KestLockFactory<std::string, TypeParam> factory, assigned;
    TypeParam* found = nullptr;
    EXPECT_FALSE(factory.exists("a"));
    EXPECT_FALSE(factory.getImpl("a", found));
    EXPECT_EQ(kit::failureOf([&] { factory.getLock("a"); }), "KestNoSuchElementException - a");
    for (const char* name : {"b", "a", "\xE4", "B", ""})
        factory.createLock(name);
    EXPECT_EQ(factory.getRegisteredLockNames(), (std::vector<std::string>{"", "B", "a", "b", "\xE4"}));
    EXPECT_TRUE(factory.exists("b"));
    EXPECT_TRUE(factory.getImpl("b", found));
    factory.createLock("b");
    EXPECT_EQ(&factory.getLock("b"), found);
    assigned.createLock("gone");
    assigned = factory;
    EXPECT_EQ(assigned.getRegisteredLockNames(), factory.getRegisteredLockNames());
    EXPECT_NE(&assigned.getLock("b"), found);
}

TYPED_TEST(LockFactory, ExcludesOtherThreads) {
    KestLockFactory<std::string, TypeParam> factory, empty;
    TypeParam* found = nullptr;
    const std::function<void()> operations[] = {[&] { factory.createLock("c"); }, [&] { factory.exists("held"); },
                                                [&] { factory.getImpl("held", found); },
                                                [&] { factory.getRegisteredLockNames(); }, [&] { factory = empty; }};
    const kit::AllocationHook stopping(stopOnce);
    for (const auto& operation : operations) {
        factory = empty;
        Hold hold;
        kit::Gate done;
        std::jthread holder([&factory, &hold, name = std::string("held")] {
            t_hold = &hold;
            factory.createLock(name);
        });
        hold.inside.pass();
        std::jthread second([&] {
            operation();
            done.open();
        });
        EXPECT_FALSE(done.passWithin(std::chrono::milliseconds(20)));
        hold.end.open();
    }
}

TEST(LockFactoryCopy, SharesUsedLocks) {
    KestLockFactory<std::string, KestReadWriteLock> factory;
    factory.createLock("x");
    KestLockFactory<std::string, KestReadWriteLock>(factory).getLock("x").writeLock();
    EXPECT_FALSE(factory.getLock("x").tryReadLock());
    KestLockFactory<std::string, KestMutexObject> mutexes;
    mutexes.createLock("unused");
    mutexes.createLock("used");
    const KestCriticalSection used(mutexes.getLock("used"), true);
    KestLockFactory<std::string, KestMutexObject> copy(mutexes);
    const KestCriticalSection unused(mutexes.getLock("unused"), true);
    EXPECT_EQ(copy.getLock("used").lockCount(), 1);
    EXPECT_EQ(copy.getLock("unused").lockCount(), 0);
}

}  // namespace
