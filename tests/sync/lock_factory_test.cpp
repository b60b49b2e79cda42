#include "support/lock_factory.h"

#include "kit/failure_of.h"

namespace KestSupport {
namespace {

template <typename Lock>
class LockFactory : public testing::Test {};
using Kinds = testing::Types<KestCriticalSectionObject, KestMutexObject, KestReadWriteLock>;
TYPED_TEST_SUITE(LockFactory, Kinds);

TYPED_TEST(LockFactory, KeepsOneLockUnderEachName) {
    KestLockFactory<std::string, TypeParam> factory;
    TypeParam other;
    TypeParam* found = &other;
    EXPECT_FALSE(factory.exists("a"));
    EXPECT_FALSE(factory.getImpl("a", found));
    EXPECT_EQ(found, &other);
    EXPECT_TRUE(factory.getRegisteredLockNames().empty());
    EXPECT_EQ(kit::failureOf([&] { factory.getLock("a"); }), "KestNoSuchElementException - a");

    for (const char* name : {"b", "a", "\xE4", "B", "", "a"})
        factory.createLock(name);
    EXPECT_EQ(factory.getRegisteredLockNames(), (std::vector<std::string>{"", "B", "a", "b", "\xE4"}));
    ASSERT_TRUE(factory.getImpl("b", found));
    factory.createLock("b");
    EXPECT_TRUE(factory.exists("b"));
    EXPECT_EQ(&factory.getLock("b"), found);
    EXPECT_NE(&factory.getLock("B"), found);

    const auto& itself = factory;
    factory = itself;
    EXPECT_EQ(&factory.getLock("b"), found);
    KestLockFactory<std::string, TypeParam> copy(factory), assigned;
    assigned.createLock("gone");
    assigned = copy;
    EXPECT_EQ(assigned.getRegisteredLockNames(), factory.getRegisteredLockNames());
    EXPECT_NE(&assigned.getLock("b"), found);
}

TEST(LockFactoryCopies, ShareReadWriteLocksAndTheOthersOnceTheyWereUsed) {
    KestLockFactory<std::string, KestReadWriteLock> factory;
    factory.createLock("x");
    KestLockFactory<std::string, KestReadWriteLock> copy(factory);
    copy.getLock("x").writeLock();
    EXPECT_FALSE(factory.getLock("x").tryReadLock());

    KestLockFactory<std::string, KestMutexObject> mutexes, assigned;
    mutexes.createLock("fresh");
    mutexes.createLock("used");
    mutexes.getLock("used").unwind();
    assigned = mutexes;
    for (const char* name : {"fresh", "used"})
        mutexes.getLock(name).lock();
    EXPECT_EQ(assigned.getLock("fresh").lockCount(), 0);
    EXPECT_EQ(assigned.getLock("used").lockCount(), 1);
    for (const char* name : {"fresh", "used"})
        mutexes.getLock(name).unlock();
}

}  // namespace
}  // namespace KestSupport
