#include "support/object_base.h"

#include <gtest/gtest.h>

#include <thread>

#include "support/locks.h"
#include "support/threads.h"

namespace KestSupport {

// In the library's namespace, so that its name is qualified.
struct Witness : KestObjectBase {
    explicit Witness(int& destroyed) : m_destroyed(destroyed) {}
    ~Witness() override { ++m_destroyed; }
    using KestObjectBase::normalizeClassName;
    int& m_destroyed;
};
template <typename A, typename B>
struct Pair : KestObjectBase {};

namespace {

TEST(ObjectBase, TheLastHolderDeletesOnce) {
    int destroyed = 0;
    auto* const object = new Witness(destroyed);
    EXPECT_EQ(object->refCount(), 0U);
    {
        const KestSmartPointer<Witness> first(object);
        EXPECT_EQ(object->refCount(), 1U);
        const KestSmartPointer<Witness> second(first);
        EXPECT_EQ(object->addRef(), 3U);
        EXPECT_EQ(object->release(), 2U);
    }
    EXPECT_EQ(destroyed, 1);
    auto* const bare = new Witness(destroyed);
    bare->addRef();
    EXPECT_EQ(bare->release(), 0U);
    EXPECT_EQ(destroyed, 2);
}

TEST(ObjectBase, AssignmentMovesHoldersBetweenTargets) {
    int a = 0, b = 0;
    KestSmartPointer<Witness> first(new Witness(a)), second(new Witness(b));
    const auto& alias = first;
    first = alias;
    first = first.get();
    EXPECT_EQ(first->refCount(), 1U);
    first = second;
    EXPECT_EQ(a, 1);
    EXPECT_EQ(second->refCount(), 2U);
    first = nullptr;
    EXPECT_TRUE(first.isNull() && !first && first == nullptr && first != second);
    EXPECT_EQ(second->refCount(), 1U);
    KestSmartPointer<Witness> third(std::move(second));
    EXPECT_TRUE(second.isNull());
    EXPECT_EQ(third->refCount(), 1U);
    second = third;
    third = std::move(second);
    EXPECT_EQ(third->refCount(), 1U);
    EXPECT_EQ(b, 0);
}

TEST(ObjectBase, TheCountBelongsToTheObject) {
    int destroyed = 0;
    const KestSmartPointer<Witness> held(new Witness(destroyed));
    const Witness copy(*held);
    EXPECT_EQ(copy.refCount(), 0U);
    static_cast<KestObjectBase&>(*held) = copy;
    EXPECT_EQ(held->refCount(), 1U);
}

TEST(ObjectBase, NamesTheMostDerivedClass) {
    KestThread thread;
    const KestObjectBase& base = thread;
    EXPECT_EQ(base.getClassName(), "KestSupport::KestThread");
    EXPECT_EQ(LockImplementation(true).getClassName(), "LockImplementation");
    EXPECT_EQ((Pair<int, unsigned long>().getClassName()), "KestSupport::Pair<int, unsigned long>");
    EXPECT_TRUE(base.isA("KestSupport::KestThread"));
    for (const char* wrong : {"KestSupport::KestObjectBase", "KestThread", "kestsupport::kestthread", "",
                              "KestSupport::KestThread ", "class KestSupport::KestThread"}) {
        EXPECT_FALSE(base.isA(wrong)) << wrong;
    }
}

TEST(ObjectBase, NormalizedNamesLoseTheirFirstWordOnly) {
    EXPECT_EQ(Witness::normalizeClassName("class KestSupport::KestThread"), "KestSupport::KestThread");
    EXPECT_EQ(Witness::normalizeClassName("class T<class A, class B>"), "T<class A, class B>");
    EXPECT_EQ(Witness::normalizeClassName("LockImplementation"), "LockImplementation");
    EXPECT_EQ(Witness::normalizeClassName(""), "");
}

TEST(ObjectBase, HoldersInManyThreadsAreCounted) {
    int destroyed = 0;
    KestSmartPointer<Witness> shared(new Witness(destroyed));
    const auto hold = [&shared] {
        for (int i = 0; i < 20'000; ++i)
            const KestSmartPointer<Witness> mine(shared);
    };
    std::thread first(hold), second(hold);
    first.join();
    second.join();
    EXPECT_EQ(shared->refCount(), 1U);
    shared = nullptr;
    EXPECT_EQ(destroyed, 1);
}

}  // namespace
}  // namespace KestSupport
