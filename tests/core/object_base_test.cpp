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

TEST(ObjectBase, TheLastHolderDeletesOnceAndTheCountBelongsToTheObject) {
    int destroyed = 0;
    auto* const object = new Witness(destroyed);
    {
        const KestSmartPointer<Witness> first(object), second(first);
        EXPECT_TRUE(object->addRef() == 3 && object->release() == 2);
        const Witness copy(*object);
        static_cast<KestObjectBase&>(*object) = copy;
        EXPECT_TRUE(copy.refCount() == 0 && object->refCount() == 2);
    }
    EXPECT_EQ(destroyed, 2) << "with the copy";
}

TEST(ObjectBase, AssignmentMovesHoldersBetweenTargets) {
    int a = 0, b = 0;
    KestSmartPointer<Witness> first(new Witness(a)), second(new Witness(b));
    const auto& alias = first;
    first = alias;
    first = first.get();
    EXPECT_EQ(first->refCount(), 1U);
    first = second;
    EXPECT_TRUE(a == 1 && second->refCount() == 2);
    first = nullptr;
    EXPECT_TRUE(first.isNull() && !first && first == nullptr && first != second);
    KestSmartPointer<Witness> third(std::move(second));
    EXPECT_TRUE(second.isNull() && third->refCount() == 1);
    second = third;
    third = std::move(second);
    EXPECT_TRUE(third->refCount() == 1 && b == 0);
}

TEST(ObjectBase, NamesTheMostDerivedClass) {
    KestThread thread;
    const KestObjectBase& base = thread;
    EXPECT_EQ(LockImplementation(true).getClassName(), "LockImplementation");
    EXPECT_EQ((Pair<int, unsigned long>().getClassName()), "KestSupport::Pair<int, unsigned long>");
    EXPECT_TRUE(base.isA("KestSupport::KestThread"));
    for (const char* wrong : {"KestSupport::KestObjectBase", "KestThread", "", "KestSupport::KestThread "})
        EXPECT_FALSE(base.isA(wrong)) << wrong;
    EXPECT_EQ(Witness::normalizeClassName("class T<class A, class B>"), "T<class A, class B>");
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
    first.join(), second.join();
    EXPECT_EQ(shared->refCount(), 1U);
    shared = nullptr;
    EXPECT_EQ(destroyed, 1);
}

}  // namespace
}  // namespace KestSupport
