// Events: the notification before the signal, the waits for one, any and all, and an event without memory.
#include "support/events.h"

#include <array>
#include <stdexcept>

#include "kit/allocations.h"
#include "kit/failing_calls.h"

namespace {

using namespace KestSupport;

constexpr int kSignalled = 0, kFailed = -1, kTimedOut = -2;

// Records that a notification is created (c), handled (h) and destroyed (d).
struct Observed : KestEvent, KestDependent {
    KestNotification* createNotification() override {
        record += 'c';
        return KestEvent::createNotification();
    }
    void destroyNotification(KestNotification* notification) override {
        record += 'd';
        KestEvent::destroyNotification(notification);
        if (throwsLast) throw std::logic_error("no");
    }
    void handleNotification(KestCollaborator&, const KestNotification& notification) override {
        record += dynamic_cast<const KestEventNotification*>(&notification) != nullptr ? 'h' : '?';
        EXPECT_EQ(notification.getId(), 1);
        EXPECT_EQ(wait(0), kTimedOut) << "the signal follows the notification";
        if (throws) throw std::runtime_error("no");
    }
    std::string record;
    bool throws = false, throwsLast = false;
};

TEST(Event, NotifiesBeforeItSignals) {
    Observed event;
    event.set();
    EXPECT_EQ(event.wait(-1), kSignalled);
    event.addDependent(event);
    event.set();
    event.reset();
    EXPECT_EQ(event.wait(10), kTimedOut);
    event.pulse();
    EXPECT_EQ(event.wait(0), kTimedOut);
    event.throws = true;
    EXPECT_THROW(event.set(), std::runtime_error);
    event.throwsLast = true;
    EXPECT_THROW(event.set(), std::logic_error);
    EXPECT_EQ(event.wait(0), kTimedOut);
    event.throwsLast = false;
    event.removeDependent(event);
    event.set();
    EXPECT_EQ(event.record, "cdchdchdchdchdcd");
}

TEST(Event, WaitsForAnyAndForAll) {
    std::array<KestEvent, 3> events;
    std::vector<KestEvent*> set{&events[0], &events[1], &events[2]};
    events[2].set();
    EXPECT_EQ(KestEvent::wait(set, false, 0), 2);
    events[0].set();
    events[2].set();
    EXPECT_EQ(KestEvent::wait(3, events.data(), true, 10), kTimedOut);
    EXPECT_EQ(KestEvent::wait(3, events.data(), false, -1), 0) << "the lowest, which the wait before did not consume";
    events[0].set();
    events[1].set();
    EXPECT_EQ(KestEvent::wait(set, true, 0), kSignalled) << "the third was still signalled";
    EXPECT_EQ(KestEvent::wait(set, false, 0), kTimedOut);
    EXPECT_EQ(KestEvent::wait(-4, events.data(), true, -1), kFailed);
    set.resize(65, &events[0]);
    EXPECT_EQ(KestEvent::wait(set, false, 0), kFailed);
}

TEST(Event, AllocatesNothingWithoutDependents) {
    static thread_local int t_allocations = 0;
    KestEvent event;
    const kit::AllocationHook counting([](std::size_t) { return ++t_allocations > 0; });
    event.pulse();
    event.set();
    EXPECT_EQ(KestEvent::wait(1, &event, true, 0), kSignalled);
    EXPECT_EQ(t_allocations, 0);
}

TEST(Event, IsInertWithoutMemory) {
    const kit::FailingCalls failing("createEvent");
    Observed event;
    event.addDependent(event);
    event.set();
    event.pulse();
    event.reset();
    EXPECT_EQ(event.record, "");
    EXPECT_EQ(event.wait(-1), kSignalled);
    EXPECT_EQ(event.getHandle(), nullptr);
    EXPECT_EQ(KestEvent::wait(1, &event, false, 0), kFailed);
}

}  // namespace
