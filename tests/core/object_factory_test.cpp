// Object factory: which creator a name has, and what copies and the factory of the process contain.
#include "support/object_factory.h"

namespace {

using namespace KestSupport;
using Names = std::vector<std::string>;

template <char Mark>
struct Made : KestObjectBase {
    static KestObjectBase* make() { return new Made; }
};

struct Registration : KestObjectFactoryRegistration {
    KestSmartPointer<KestObjectBase> create() override {
        if (factory == nullptr) throw 3;
        KestSmartPointer<KestObjectBase> object;
        std::thread([&] { object = factory->construct("b"); }).join();
        return object;
    }
    KestObjectFactory* factory = nullptr;
};

// For each letter, as a name: the mark of the object that the factory creates, or '-' for a null pointer.
std::string made(KestObjectFactory& factory, const std::string& names) {
    std::string marks;
    for (const char name : names) {
        const KestSmartPointer<KestObjectBase> object = factory.construct({name});
        EXPECT_TRUE(object.isNull() || object->refCount() == 1);
        marks += object.isNull() ? '-' : dynamic_cast<const Made<'1'>*>(object.get()) != nullptr ? '1' : '2';
    }
    return marks;
}

TEST(ObjectFactory, PrefersRegistrationToFunction) {
    KestObjectFactory factory;
    EXPECT_EQ(made(factory, "b"), "-");
    factory.add("b", Made<'1'>::make);
    EXPECT_EQ(made(factory, "bB"), "1-");
    factory.add("b", Made<'2'>::make);
    factory.add("a", [] { return static_cast<KestObjectBase*>(nullptr); });
    EXPECT_EQ(made(factory, "ab"), "-2");

    Registration registration;
    registration.factory = &factory;
    factory.add("a", registration);
    EXPECT_EQ(made(factory, "a"), "2") << "no lock is held while a registration runs";
    factory.add("c", registration);
    registration.factory = nullptr;
    EXPECT_THROW(factory.construct("c"), int);

    KestObjectFactory copy(factory), target;
    target.add("gone", Made<'1'>::make);
    target.add("kept", registration);
    target = factory;
    EXPECT_EQ(copy.getRegisteredClasses(), (Names{"a", "b"}));
    EXPECT_EQ(target.getRegisteredClasses(), (Names{"a", "b", "kept"}));
    for (const Names& left : {Names{"a", "b", "a", "c"}, Names{"a", "b", "c"}, Names{"b", "c"}}) {
        EXPECT_EQ(factory.getRegisteredClasses(), left);
        factory.remove("a");
    }
}

TEST(ObjectFactory, StartsEmptyForTheProcess) {
    KestObjectFactory& first = KestObjectFactory::getGlobalInstance();
    first.add("b", Made<'1'>::make);
    EXPECT_EQ(&KestObjectFactory::getGlobalInstance(), &first);
    KestObjectFactory::deleteGlobalInstance();
    KestObjectFactory::deleteGlobalInstance();
    EXPECT_EQ(KestObjectFactory::getGlobalInstance().getRegisteredClasses(), Names{});
}

}  // namespace
