#include "support/object_factory.h"

#include <gtest/gtest.h>

namespace KestSupport {
namespace {

using Names = std::vector<std::string>;

template <int Maker>
struct Made : KestObjectBase {
    static KestObjectBase* make() { return new Made; }
};

struct Registration : KestObjectFactoryRegistration {
    KestSmartPointer<KestObjectBase> create() override {
        if (factory == nullptr) throw 3;
        return factory->construct("b");
    }
    KestObjectFactory* factory = nullptr;
};

// Who made the object that the factory gives for the name; 0 for a null pointer.
int makerOf(KestObjectFactory& factory, const std::string& name) {
    const KestSmartPointer<KestObjectBase> object = factory.construct(name);
    if (object.isNull()) return 0;
    EXPECT_EQ(object->refCount(), 1U);
    return dynamic_cast<const Made<1>*>(object.get()) != nullptr ? 1 : 2;
}

TEST(ObjectFactory, MakesWhatIsInForceForAName) {
    KestObjectFactory factory;
    EXPECT_EQ(makerOf(factory, "b"), 0);
    factory.add("b", Made<1>::make);
    EXPECT_TRUE(makerOf(factory, "b") == 1 && makerOf(factory, "B") == 0) << "names have their case";
    factory.add("b", Made<2>::make);
    factory.add("a", [] { return static_cast<KestObjectBase*>(nullptr); });
    EXPECT_TRUE(makerOf(factory, "b") == 2 && makerOf(factory, "a") == 0);

    Registration registration;
    registration.factory = &factory;
    factory.add("a", registration);
    EXPECT_EQ(makerOf(factory, "a"), 2) << "a registration comes before a function, and may use the factory";
    factory.add("c", registration);
    EXPECT_EQ(factory.getRegisteredClasses(), (Names{"a", "b", "a", "c"}));
    registration.factory = nullptr;
    EXPECT_THROW(factory.construct("c"), int);

    KestObjectFactory copy(factory), target;
    target.add("gone", Made<1>::make);
    target.add("kept", registration);
    target = factory;
    EXPECT_EQ(copy.getRegisteredClasses(), (Names{"a", "b"}));
    EXPECT_EQ(target.getRegisteredClasses(), (Names{"a", "b", "kept"}));
    for (const Names& left : {Names{"a", "b", "c"}, Names{"b", "c"}}) {
        factory.remove("a");
        EXPECT_EQ(factory.getRegisteredClasses(), left);
    }
}

TEST(ObjectFactory, TheFactoryOfTheProcessIsEmptyEachTimeThatItIsMade) {
    KestObjectFactory& first = KestObjectFactory::getGlobalInstance();
    first.add("b", Made<1>::make);
    EXPECT_EQ(&KestObjectFactory::getGlobalInstance(), &first);
    KestObjectFactory::deleteGlobalInstance(), KestObjectFactory::deleteGlobalInstance();
    EXPECT_EQ(KestObjectFactory::getGlobalInstance().getRegisteredClasses(), Names{});
}

}  // namespace
}  // namespace KestSupport
