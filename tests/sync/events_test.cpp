#include "support/events.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <stdexcept>
#include <vector>

#include "kit/failing_calls.h"

namespace KestSupport {
namespace {

struct Told : KestDependent {
    void handleNotification(KestCollaborator&, const KestNotification& notification) override {
        EXPECT_NE(dynamic_cast<const KestEventNotification*>(&notification), nullptr);
        EXPECT_EQ(notification.getId(), 1);
        ++calls;
        if (event != nullptr) signalledWhenTold = event->wait(0);
        if (throws) throw std::runtime_error("no");
    }
    std::atomic<int> calls{0};
    KestEvent* event = nullptr;
    int signalledWhenTold = 99;
    bool throws = false;
};

TEST(Event, SignalsOnceAndClears) {
    KestEvent event;
    EXPECT_EQ(event.wait(0), -2);
    event.set();
    event.set();
    EXPECT_EQ(event.wait(0), 0);
    EXPECT_EQ(event.wait(0), -2);
    event.set();
    event.reset();
    EXPECT_EQ(event.wait(10), -2);
    event.pulse();
    EXPECT_EQ(event.wait(0), -2);
    event.set();
    EXPECT_EQ(event.wait(-1), 0);
    EXPECT_NE(event.getHandle(), nullptr);
}

TEST(Event, TellsItsDependentsBeforeItSignals) {
    KestEvent event;
    Told told;
    event.addDependent(told);
    told.event = &event;
    event.set();
    EXPECT_EQ(told.signalledWhenTold, -2);
    EXPECT_EQ(event.wait(0), 0);
    told.event = nullptr;
    event.pulse();
    EXPECT_EQ(told.calls, 2);
    event.reset();
    EXPECT_EQ(told.calls, 2);
    told.throws = true;
    EXPECT_THROW(event.set(), std::runtime_error);
    EXPECT_EQ(event.wait(0), -2);
    event.removeDependent(told);
    event.set();
    EXPECT_EQ(told.calls, 3);
}

TEST(Event, GivesEveryNotificationBack) {
    struct Own : KestEvent {
        KestNotification* createNotification() override { return ++made, new KestEventNotification; }
        void destroyNotification(KestNotification* notification) override {
            ++returned;
            KestEvent::destroyNotification(notification);
            KestEvent::destroyNotification(nullptr);
        }
        int made = 0, returned = 0;
    } event;
    Told told;
    event.set();
    event.pulse();
    told.throws = true;
    event.addDependent(told);
    EXPECT_THROW(event.set(), std::runtime_error);
    EXPECT_EQ(event.made, 3);
    EXPECT_EQ(event.returned, 3);
}

TEST(Event, WaitsForAnyAndForAll) {
    std::array<KestEvent, 3> events;
    std::vector<KestEvent*> set{&events[0], &events[1], &events[2]};
    events[2].set();
    EXPECT_EQ(KestEvent::wait(set, false, 0), 2);
    events[0].set();
    events[2].set();
    EXPECT_EQ(KestEvent::wait(3, events.data(), false, -1), 0);
    EXPECT_EQ(KestEvent::wait(3, events.data(), true, 10), -2);
    EXPECT_EQ(events[2].wait(0), 0) << "a wait for all that failed consumed a signal";
    for (auto& event : events)
        event.set();
    EXPECT_EQ(KestEvent::wait(set, true, 0), 0);
    EXPECT_EQ(KestEvent::wait(set, false, 0), -2);
    EXPECT_EQ(KestEvent::wait(0, events.data(), false, 0), -1);
    EXPECT_EQ(KestEvent::wait(-4, events.data(), true, -1), -1);
    std::vector<KestEvent> many(65);
    EXPECT_EQ(KestEvent::wait(65, many.data(), false, 0), -1);
    many[63].set();
    EXPECT_EQ(KestEvent::wait(64, many.data(), false, 0), 63);
}

TEST(Event, WithoutAPlatformEventIsInert) {
    const kit::FailingCalls failing("createEvent");
    KestEvent event;
    Told told;
    event.addDependent(told);
    event.set();
    event.pulse();
    event.reset();
    EXPECT_EQ(told.calls, 0);
    EXPECT_EQ(event.wait(-1), 0);
    EXPECT_EQ(event.getHandle(), nullptr);
    EXPECT_EQ(KestEvent::wait(1, &event, false, 0), -1);
}

}  // namespace
}  // namespace KestSupport
