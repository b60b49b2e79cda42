// Object base and smart pointer: the count, the last release, and class names.
#include "support/object_base.h"

#include <set>
#include <unordered_set>
#include <utility>

#include "kit/child_process.h"
#include "support/locks.h"
#include "support/observer.h"
#include "support/threads.h"

namespace KestSupport {

// In the library's namespace, so that their names are qualified.
struct Witness : KestObjectBase {
    explicit Witness(int& destroyed) : m_destroyed(destroyed) {}
    ~Witness() override { ++m_destroyed; }
    using KestObjectBase::normalizeClassName;
    int& m_destroyed;
};
template <typename A, typename B>
struct Pair : KestObjectBase {};

namespace {

TEST(SmartPointer, MovesReferencesBetweenTargets) {
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
    EXPECT_TRUE(first.isNull());
    EXPECT_FALSE(first);
    EXPECT_TRUE(first == nullptr && first == NULL && first == KestSmartPointer<Witness>(NULL));
    EXPECT_NE(first, second);
    KestSmartPointer<Witness> third(std::move(second));
    EXPECT_EQ(second, nullptr);
    EXPECT_EQ(third->refCount(), 1U);
    second = third;
    third = std::move(second);
    EXPECT_EQ(third->refCount(), 1U);
    EXPECT_EQ(b, 0);
}

TEST(SmartPointer, ConvertsToBaseAndHasOrder) {
    struct Special : Witness {
        using Witness::Witness;
    };
    int destroyed = 0;
    auto special = kestMake<Special>(destroyed);
    KestSmartPointer<Witness> base = special;
    EXPECT_EQ(base, special);
    EXPECT_EQ(base->refCount(), 2U);
    base = std::move(special);
    EXPECT_TRUE(special.isNull());
    EXPECT_EQ(base->refCount(), 1U);
    std::set<KestSmartPointer<Witness>> ordered{base, kestMake<Special>(destroyed), base, nullptr};
    EXPECT_EQ(ordered.size(), 3U);
    EXPECT_EQ(*ordered.begin(), nullptr);
    EXPECT_EQ(std::unordered_set<KestSmartPointer<Witness>>(ordered.begin(), ordered.end()).count(base), 1U);
    ordered.clear();
    EXPECT_EQ(destroyed, 1);
    static_assert(!std::is_convertible_v<KestSmartPointer<Witness>, KestSmartPointer<Special>>);
}

TEST(ObjectBase, NamesMostDerivedClass) {
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

TEST(ObjectBase, CountsItsOwnReferences) {
    int destroyed = 0;
    KestSmartPointer<Witness> shared(new Witness(destroyed));
    static_cast<KestObjectBase&>(*shared) = Pair<int, int>();
    EXPECT_EQ(shared->addRef(), 2U) << "assignment does not change the count";
    EXPECT_EQ(Witness(*shared).refCount(), 0U);
    EXPECT_EQ(shared->release(), 1U);
    const auto hold = [&shared] {
        for (int i = 0; i < 500'000; ++i)
            const KestSmartPointer<Witness> mine(shared);
    };
    std::thread other(hold);
    hold();
    other.join();
    EXPECT_EQ(shared->refCount(), 1U);
    shared = nullptr;
    EXPECT_EQ(destroyed, 2) << "with the copy";
}

int g_calls = 0;

struct Adds : KestObjectBase {
    unsigned long addRef() override { return ++g_calls, KestObjectBase::addRef(); }
};
struct Releases : KestCollaborator, KestObjectBase {
    unsigned long release() override { return ++g_calls, KestObjectBase::release(); }
};

// Gives a smart pointer the first object of the process whose class overrides a function. Returns the calls: three, and
// one for the pointer `made`.
const kit::ChildRole g_role("overrides", [](const std::vector<std::string>& way) {
    const auto plain = kestMake<Pair<int, int>>();
    {
        KestSmartPointer<KestObjectBase> first;
        if (way.front() == "new") first = KestSmartPointer<KestObjectBase>(new Adds);
        if (way.front() == "assigned") first = new Releases;
        if (way.front() == "moved") first = kestMake<Adds>();
        if (const auto made = kestMake<Releases>(); way.front() == "copied") first = made;
        auto copy = first, assigned = KestSmartPointer<KestObjectBase>(plain);
        assigned = copy;
    }
    return plain->refCount() == 1 ? g_calls : 0;
});

TEST(SmartPointer, CallsOverrides) {
    for (const char* const way : {"new", "assigned", "moved", "copied"})
        EXPECT_EQ(kit::ChildProcess::inRole("overrides", {way}).wait(), 4) << way;
}

}  // namespace
}  // namespace KestSupport
