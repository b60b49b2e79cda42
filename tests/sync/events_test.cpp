#include "support/events.h"

#include <array>
#include <stdexcept>

#include "kit/allocations.h"
#include "kit/failing_calls.h"

namespace KestSupport {
namespace {

struct Counted : KestEvent {
    KestNotification* createNotification() override { return ++made, KestEvent::createNotification(); }
    void destroyNotification(KestNotification* notification) override {
        ++returned;
        KestEvent::destroyNotification(notification);
    }
    int made = 0, returned = 0;
};

struct Told : KestDependent {
    explicit Told(KestEvent& told) : event(told) { event.addDependent(*this); }
    void handleNotification(KestCollaborator&, const KestNotification& notification) override {
        EXPECT_NE(dynamic_cast<const KestEventNotification*>(&notification), nullptr);
        EXPECT_EQ(notification.getId(), 1);
        EXPECT_EQ(event.wait(0), -2) << "dependents are told before the signal";
        ++calls;
        if (throws) throw std::runtime_error("no");
    }
    KestEvent& event;
    int calls = 0;
    bool throws = false;
};

TEST(Event, TellsItsDependentsSignalsOnceAndGivesEveryNotificationBack) {
    Counted event;
    Told told(event);
    event.set();
    EXPECT_EQ(event.wait(-1), 0);
    EXPECT_EQ(event.wait(0), -2);
    event.set();
    event.reset();
    EXPECT_EQ(event.wait(10), -2);
    event.pulse();
    EXPECT_EQ(event.wait(0), -2);
    EXPECT_EQ(told.calls, 3);
    told.throws = true;
    EXPECT_THROW(event.set(), std::runtime_error);
    EXPECT_EQ(event.wait(0), -2);
    event.removeDependent(told);
    event.set();
    EXPECT_EQ(told.calls, 4);
    EXPECT_EQ(event.made, 5);
    EXPECT_EQ(event.returned, 5);
}

TEST(Event, AllocatesNothingToBeSetWhileThereIsNoDependentToTell) {
    static thread_local int t_allocations = 0;
    KestEvent event;
    const kit::AllocationHook counting([](std::size_t) { return ++t_allocations > 0; });
    event.set();
    event.pulse();
    EXPECT_EQ(t_allocations, 0);
}

TEST(Event, WaitsForAnyAndForAll) {
    std::array<KestEvent, 3> events;
    std::vector<KestEvent*> set{&events[0], &events[1], &events[2]};
    events[2].set();
    EXPECT_EQ(KestEvent::wait(set, false, 0), 2);
    events[0].set();
    events[2].set();
    EXPECT_EQ(KestEvent::wait(3, events.data(), true, 10), -2);
    EXPECT_EQ(KestEvent::wait(3, events.data(), false, -1), 0) << "the lowest, which the wait before did not take";
    events[0].set();
    events[1].set();
    EXPECT_EQ(KestEvent::wait(set, true, 0), 0) << "the third was still signalled";
    EXPECT_EQ(KestEvent::wait(set, false, 0), -2);
    EXPECT_EQ(KestEvent::wait(-4, events.data(), true, -1), -1);
}

TEST(Event, WithoutAPlatformEventIsInert) {
    const kit::FailingCalls failing("createEvent");
    KestEvent event;
    const Told told(event);
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
