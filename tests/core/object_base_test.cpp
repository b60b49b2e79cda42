// Object base and smart pointer: the count, the last release, and class names.
#include "support/object_base.h"

#include <map>
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
    EXPECT_EQ(first, nullptr);
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

std::string g_calls;

struct AddsItself : KestObjectBase {
    unsigned long addRef() override {
        g_calls += '+';
        return KestObjectBase::addRef();
    }
};
struct ReleasesItself : KestObjectBase {
    unsigned long release() override {
        g_calls += '-';
        return KestObjectBase::release();
    }
};
struct Second : KestCollaborator, AddsItself {};

// The first object of a process whose class overrides a function; a copy and an assignment of its pointer follow.
const std::map<std::string, std::pair<KestSmartPointer<KestObjectBase> (*)(), std::string>> g_ways{
    {"new", {[]() -> KestSmartPointer<KestObjectBase> { return new AddsItself; }, "+++"}},
    {"second base", {[]() -> KestSmartPointer<KestObjectBase> { return kestMake<Second>(); }, "+++"}},
    {"assigned",
     {[] {
          KestSmartPointer<KestObjectBase> pointer;
          pointer = new ReleasesItself;
          return pointer;
      },
      "---"}},
    {"copied",
     {[]() -> KestSmartPointer<KestObjectBase> {
          const auto pointer = kestMake<ReleasesItself>();
          return pointer;
      },
      "----"}},
};

const kit::ChildRole g_role("overrides", [](const std::vector<std::string>& arguments) {
    const auto& [make, expected] = g_ways.at(arguments.front());
    const auto plain = kestMake<Pair<int, int>>();
    {
        const auto first = make();
        auto copy = first, assigned = KestSmartPointer<KestObjectBase>(plain);
        assigned = copy;
    }
    EXPECT_EQ(g_calls, expected) << arguments.front();
    EXPECT_EQ(plain->refCount(), 1U) << "although it was counted in both ways";
    return testing::Test::HasFailure() ? 1 : 0;
});

TEST(SmartPointer, CallsOverrides) {
    for (const auto& [way, rest] : g_ways)
        EXPECT_EQ(kit::ChildProcess::inRole("overrides", {way}).wait(), 0) << way;
}

}  // namespace
}  // namespace KestSupport
