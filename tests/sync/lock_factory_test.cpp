#include "support/lock_factory.h"

#include <functional>
#include <utility>

#include "kit/allocations.h"
#include "kit/failure_of.h"
#include "kit/gate.h"

namespace {

using namespace KestSupport;

// Stops a thread in its next allocation, wherever that is.
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

TYPED_TEST(LockFactory, IsOneThreadsAtATime) {
    KestLockFactory<std::string, TypeParam> factory, source;
    factory.createLock("made");
    TypeParam* found = nullptr;
    const std::function<void()> operations[] = {[&] { factory.createLock("c"); }, [&] { factory.exists("made"); },
                                                [&] { factory.getImpl("made", found); },
                                                [&] { factory.getRegisteredLockNames(); }, [&] { factory = source; }};
    const kit::AllocationHook stopping(stopOnce);
    for (const auto& operation : operations) {
        Hold hold;
        kit::Gate done;
        std::thread holder([&] {
            const std::string name = "held";
            t_hold = &hold;
            factory.createLock(name);
        });
        hold.inside.pass();
        std::thread other([&] {
            operation();
            done.open();
        });
        EXPECT_FALSE(done.passWithin(std::chrono::milliseconds(20)));
        hold.end.open();
        holder.join();
        other.join();
        factory = source;
    }
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
