// Observer: order, changes of the list during a notification, exceptions, and threads.
#include "support/observer.h"
#include "threads/function_work.h"

#include <algorithm>
#include <functional>
#include <random>
#include <stdexcept>

namespace {

using namespace KestSupport;

struct Recorder : KestDependent {
    Recorder(std::string& calls, char ownName) : record(calls), name(ownName) {}
    void handleNotification(KestCollaborator& sender, const KestNotification& notification) override {
        record += name + std::to_string(notification.getId());
        action(sender);
    }
    std::function<void(KestCollaborator&)> action = [](KestCollaborator&) {};
    std::string& record;
    const char name;
};

struct Collaborator : testing::Test {
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

TEST_F(Collaborator, NotifiesEachEntryInOrder) {
    addAll();
    collaborator.addDependent(a);
    EXPECT_EQ(notified(), "a5b5c5a5");
    a.action = [this](KestCollaborator& sender) { sender.removeDependent(a); };
    EXPECT_EQ(notified(), "a5c5") << "this walk skips the entry after the removed one";
    EXPECT_EQ(notified(), "b5c5");
}

TEST_F(Collaborator, LetsHandlersAddAndNotify) {
    collaborator.addDependent(a);
    collaborator.addDependent(b);
    b.action = [this](KestCollaborator& sender) {
        if (record != "a5b5") return;
        sender.addDependent(c);
        sender.notify(KestNotification(6));
    };
    EXPECT_EQ(notified(), "a5b5a6b6c6c5");
}

// Against a plain list and a position in it. Each handler changes the list at random, down to few entries and up to
// many again.
TEST_F(Collaborator, WalksByPositionAmongManyDependents) {
    std::mt19937 random(3);
    std::vector<std::unique_ptr<Recorder>> dependents;
    std::vector<Recorder*> list;
    std::size_t position = 0, wanted = 0;
    const auto change = [&] {
        Recorder* const one = dependents[random() % dependents.size()].get();
        if (random() % 1000 < (list.size() < wanted ? 950 : 50)) {
            collaborator.addDependent(*one);
            list.push_back(one);
        } else {
            collaborator.removeDependent(*one);
            list.erase(std::remove(list.begin(), list.end(), one), list.end());
        }
    };
    for (int i = 0; i < 700; ++i) {
        Recorder* const one = dependents.emplace_back(new Recorder(record, 'd')).get();
        one->action = [&, one](KestCollaborator&) {
            ASSERT_EQ(list.at(position++), one);
            for (auto changes = random() % 3 * (random() % 3); changes > 0; --changes)
                change();
        };
    }
    for (const std::size_t most : {50, 600, 10, 400, 0, 200}) {
        wanted = most;
        for (int i = 0; i < 1200; ++i)
            change();
        position = 0;
        collaborator.notify(KestNotification(1));
        EXPECT_GE(position, list.size());
    }
}

TEST_F(Collaborator, ReleasesLockAfterException) {
    addAll();
    b.action = [](KestCollaborator&) { throw std::runtime_error("enough"); };
    EXPECT_THROW(collaborator.notify(KestNotification(1)), std::runtime_error);
    EXPECT_EQ(record, "a1b1");
    b.action = a.action;
    std::thread([this] { EXPECT_EQ(notified(), "a5b5c5"); }).join();
}

// The changing thread is killed, in some rounds within a change of the list.
TEST_F(Collaborator, ChangesWhileAnotherThreadNotifies) {
    collaborator.addDependent(a);
    for (int round = 0; round < 60; ++round) {
        std::atomic<int> changes{0};
        KestThread changer(new kit::FunctionWork([&]() -> int {
            for (;; ++changes) {
                for (int i = 0; i < 150; ++i)
                    collaborator.addDependent(b);
                collaborator.removeDependent(b);
            }
        }));
        changer.start();
        int walks = 0;
        for (; changes < 5; ++walks)
            collaborator.notify(KestNotification(1));
        EXPECT_EQ(std::count(record.begin(), record.end(), 'a'), walks) << "no walk skips the first entry";
        changer.kill();
        collaborator.removeDependent(b);
        ASSERT_EQ(notified(), "a5");
        record.clear();
    }
}

TEST(PropertyChanged, NarrowsWideName) {
    EXPECT_EQ(PropertyChanged(wstring16{'l', 'e', 'v'}).m_propertyName, "lev");
}

}  // namespace
