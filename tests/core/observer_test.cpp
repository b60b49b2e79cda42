#include "support/observer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>

namespace KestSupport {
namespace {

struct Recorder : KestDependent {
    Recorder(std::string& calls, char ownName) : record(calls), name(ownName) {}
    void handleNotification(KestCollaborator& sender, const KestNotification& notification) override {
        record += name;
        lastId = notification.getId();
        if (action) action(sender);
    }
    std::function<void(KestCollaborator&)> action;
    int lastId = -1;
    std::string& record;
    const char name;
};

struct Observed : testing::Test {
    std::string record;
    KestCollaborator collaborator;
    Recorder a{record, 'a'}, b{record, 'b'}, c{record, 'c'};

    std::string notified() {
        record.clear();
        collaborator.notify(KestNotification(5));
        return record;
    }
    void addAll() {
        for (Recorder* dependent : {&a, &b, &c})
            collaborator.addDependent(*dependent);
    }
};

TEST_F(Observed, DependentsAreCalledInOrderAndAsOftenAsTheyWereAdded) {
    addAll();
    collaborator.addDependent(a);
    EXPECT_EQ(notified(), "abca");
    EXPECT_EQ(b.lastId, 5);
    a.action = [this](KestCollaborator& sender) { sender.removeDependent(a), sender.removeDependent(a); };
    EXPECT_EQ(notified(), "ac") << "one that removes itself passes over the next in that walk only";
    EXPECT_EQ(notified(), "bc");
}

TEST_F(Observed, AHandlerMayAddADependentToTheWalkAndNotifyAgain) {
    collaborator.addDependent(a), collaborator.addDependent(b);
    b.action = [this](KestCollaborator& sender) {
        if (record.size() != 2) return;
        sender.addDependent(c);
        sender.notify(KestNotification(6));
    };
    EXPECT_EQ(notified(), "ababcc");
}

TEST_F(Observed, AnExceptionEndsTheWalkAndLeavesNoLockTaken) {
    addAll();
    b.action = [](KestCollaborator&) { throw std::runtime_error("enough"); };
    EXPECT_THROW(collaborator.notify(KestNotification(1)), std::runtime_error);
    EXPECT_EQ(record, "ab");
    b.action = nullptr;
    std::thread([this] { EXPECT_EQ(notified(), "abc"); }).join();
}

TEST_F(Observed, ListsMayChangeWhileOthersNotify) {
    collaborator.addDependent(a);
    std::thread changer([&] {
        for (int i = 0; i < 2000; ++i)
            collaborator.addDependent(b), collaborator.removeDependent(b);
    });
    for (int i = 0; i < 2000; ++i)
        collaborator.notify(KestNotification(1));
    changer.join();
    EXPECT_EQ(std::count(record.begin(), record.end(), 'a'), 2000) << "the first in the list is passed over by nobody";
}

TEST(Notification, APropertyMayBeNamedInEitherWidth) {
    EXPECT_EQ(PropertyChanged(wstring16{'l', 'e', 'v'}).m_propertyName,
              PropertyChanged(std::string("lev")).m_propertyName);
}

}  // namespace
}  // namespace KestSupport
