#include "support/observer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "support/threads.h"

namespace KestSupport {
namespace {

class Recorder : public KestDependent {
  public:
    Recorder(std::string& record, char name) : m_record(record), m_name(name) {}
    void handleNotification(KestCollaborator& sender, const KestNotification& notification) override {
        m_record += m_name;
        m_lastId = notification.getId();
        if (m_action) m_action(sender);
    }
    std::function<void(KestCollaborator&)> m_action;
    int m_lastId = -1;

  private:
    std::string& m_record;
    char m_name;
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
    EXPECT_EQ(notified(), "");
    addAll();
    collaborator.addDependent(a);
    EXPECT_EQ(notified(), "abca");
    EXPECT_EQ(b.m_lastId, 5);
    collaborator.removeDependent(a);
    EXPECT_EQ(notified(), "bc");
    collaborator.removeDependent(a);
    EXPECT_EQ(notified(), "bc");
}

TEST_F(Observed, OneThatRemovesItselfPassesOverTheNextInThatWalkOnly) {
    addAll();
    a.m_action = [this](KestCollaborator& sender) { sender.removeDependent(a); };
    EXPECT_EQ(notified(), "ac");
    EXPECT_EQ(notified(), "bc");
}

TEST_F(Observed, AHandlerMayAddADependentToTheWalkAndNotifyAgain) {
    collaborator.addDependent(a);
    collaborator.addDependent(b);
    b.m_action = [this](KestCollaborator& sender) {
        if (record.size() != 2) return;
        sender.addDependent(c);
        sender.notify(KestNotification(6));
    };
    EXPECT_EQ(notified(), "ababcc");
}

TEST_F(Observed, AnExceptionEndsTheWalkAndLeavesNoLockTaken) {
    addAll();
    b.m_action = [](KestCollaborator&) { throw std::runtime_error("enough"); };
    EXPECT_THROW(collaborator.notify(KestNotification(1)), std::runtime_error);
    EXPECT_EQ(record, "ab");
    b.m_action = nullptr;
    std::thread([this] { EXPECT_EQ(notified(), "abc"); }).join();
}

TEST_F(Observed, ListsMayChangeWhileOthersNotify) {
    struct Counting : KestDependent {
        void handleNotification(KestCollaborator&, const KestNotification&) override { ++calls; }
        std::atomic<int> calls{0};
    } steady, passing;
    collaborator.addDependent(steady);
    std::thread changer([&] {
        for (int i = 0; i < 2000; ++i) {
            collaborator.addDependent(passing);
            collaborator.removeDependent(passing);
        }
    });
    for (int i = 0; i < 2000; ++i)
        collaborator.notify(KestNotification(1));
    changer.join();
    EXPECT_EQ(steady.calls, 2000) << "the first in the list is passed over by nobody";
}

TEST(Notification, KindsCarryWhatTheySay) {
    KestNotification notification(3);
    notification = 4;
    EXPECT_EQ(notification.getId(), 4);
    const KestNotification copy(notification);
    EXPECT_EQ(copy.getId(), 4);
    KestEventNotification event;
    EXPECT_EQ(event.getId(), 1);
    event.setId(8);
    EXPECT_EQ(KestEventNotification(event).getId(), 8);
    KestThread::ThreadDone done(12), other(0);
    done.setId(9);
    other.setId(2);
    other = done;
    EXPECT_EQ(other.m_exitCode, 12);
    EXPECT_EQ(other.getId(), 2);
    EXPECT_EQ(KestThread::ThreadDone(done).m_exitCode, 12);
    EXPECT_EQ(PropertyChanged(std::string("level")).m_propertyName, "level");
    EXPECT_EQ(PropertyChanged(wstring16{'l', 'e', 'v'}).m_propertyName, "lev");
}

}  // namespace
}  // namespace KestSupport
