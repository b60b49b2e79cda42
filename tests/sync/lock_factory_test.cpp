// Lock factory: one lock for each name, copies, and the factory's own lock.
#include "support/lock_factory.h"

#include <new>

#include "kit/failing_calls.h"
#include "kit/failure_of.h"

namespace {

using namespace KestSupport;

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

// A fresh lock needs memory, so each operation that takes the factory's lock fails.
TYPED_TEST(LockFactory, TakesItsLock) {
    using Factory = KestLockFactory<std::string, TypeParam>;
    TypeParam* found = nullptr;
    const kit::FailingCalls failing("createMutex");
    EXPECT_THROW(Factory().createLock("a"), std::bad_alloc);
    EXPECT_THROW(Factory().exists("a"), std::bad_alloc);
    EXPECT_THROW(Factory().getImpl("a", found), std::bad_alloc);
    EXPECT_THROW(Factory().getRegisteredLockNames(), std::bad_alloc);
    EXPECT_THROW(Factory() = Factory(), std::bad_alloc);
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
