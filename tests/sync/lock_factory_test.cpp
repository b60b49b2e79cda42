#include "support/lock_factory.h"

#include "kit/failure_of.h"

namespace {

using namespace KestSupport;

template <typename Lock>
class LockFactory : public testing::Test {};
using Kinds = testing::Types<KestCriticalSectionObject, KestMutexObject, KestReadWriteLock>;
TYPED_TEST_SUITE(LockFactory, Kinds);

TYPED_TEST(LockFactory, KeepsOneLockUnderEachName) {
    KestLockFactory<std::string, TypeParam> factory, assigned;
    TypeParam* found = nullptr;
    EXPECT_FALSE(factory.exists("a") || factory.getImpl("a", found) || found != nullptr);
    EXPECT_TRUE(factory.getRegisteredLockNames().empty());
    EXPECT_EQ(kit::failureOf([&] { factory.getLock("a"); }), "KestNoSuchElementException - a");
    for (const char* name : {"b", "a", "\xE4", "B", ""})
        factory.createLock(name);
    EXPECT_EQ(factory.getRegisteredLockNames(), (std::vector<std::string>{"", "B", "a", "b", "\xE4"}));
    EXPECT_TRUE(factory.exists("b") && factory.getImpl("b", found) && found == &factory.getLock("b"));
    factory.createLock("b");
    EXPECT_EQ(&factory.getLock("b"), found);
    assigned.createLock("gone");
    assigned = factory;
    EXPECT_EQ(assigned.getRegisteredLockNames(), factory.getRegisteredLockNames());
    EXPECT_NE(&assigned.getLock("b"), found);
}

TEST(LockFactoryCopies, ShareTheLocksThatTheirSourceHasMade) {
    KestLockFactory<std::string, KestReadWriteLock> factory;
    factory.createLock("x");
    KestLockFactory<std::string, KestReadWriteLock>(factory).getLock("x").writeLock();
    EXPECT_FALSE(factory.getLock("x").tryReadLock());
    KestLockFactory<std::string, KestMutexObject> mutexes;
    mutexes.createLock("fresh");
    mutexes.createLock("used");
    const KestCriticalSection used(mutexes.getLock("used"), true);
    KestLockFactory<std::string, KestMutexObject> copy(mutexes);
    const KestCriticalSection fresh(mutexes.getLock("fresh"), true);
    EXPECT_EQ(copy.getLock("used").lockCount() - copy.getLock("fresh").lockCount(), 1);
}

}  // namespace
