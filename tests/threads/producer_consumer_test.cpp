// Tests the bases of queues: the sentinel, the event that acts with the mutex, and what serves without them.
#include "support/producer_consumer.h"

#include <functional>

#include "kit/failing_calls.h"
#include "kit/gate.h"
#include "kit/log_capture.h"

namespace {

using namespace KestSupport;
using namespace std::chrono_literals;

constexpr auto kNotYet = 30ms;
constexpr auto kLong = 10min;

struct Queue : KestBaseSynchronizedQueue {
    void clear() override {
        ++cleared;
        throw 7;
    }
    int cleared = 0;
};

struct Exchange : KestBaseProducerConsumer {
    using KestBaseProducerConsumer::KestBaseProducerConsumer;
    using KestBaseProducerConsumer::lockSyncMutex;
    using KestBaseProducerConsumer::m_sentinel;
    using KestBaseProducerConsumer::setSyncEvent;
    using KestBaseProducerConsumer::unlockSyncMutex;

    // Returns whether a waiting thread passes within the time after the call of `produce`.
    bool passesWithin(
        std::chrono::milliseconds time, const std::function<void()>& produce = [] {}) {
        kit::Gate locked, passed;
        const std::jthread waiter([&] {
            lockSyncMutex();
            lockSyncMutex();
            unlockSyncMutex();
            locked.open();
            waitForSyncEvent();
            passed.open();
            unlockSyncMutex();
        });
        locked.pass();
        produce();
        const bool result = passed.passWithin(time);
        if (!result) setSyncEvent();
        return result;
    }
    bool passesWhenCleared() {
        return passesWithin(kLong, [&] { EXPECT_THROW(produceSentinel(true), int); });
    }
};

TEST(ProducerConsumer, WakesOneWaitForEachSentinel) {
    const std::string prefix = "KestBaseProducerConsumer::produceSentinel: ";
    const std::string waiting = prefix + "waiting for lock", adding = prefix + "adding sentinel";
    const kit::LogCapture log;
    Queue queue;
    Exchange exchange(queue);
    EXPECT_FALSE(exchange.passesWithin(kNotYet));
    EXPECT_FALSE(exchange.m_sentinel);
    EXPECT_TRUE(exchange.passesWithin(kLong, [&] { exchange.produceSentinel(false); }));
    EXPECT_TRUE(exchange.m_sentinel);
    EXPECT_EQ(queue.cleared, 0);
    EXPECT_FALSE(exchange.passesWithin(kNotYet));
    EXPECT_TRUE(exchange.passesWhenCleared()) << "even when clear throws";
    EXPECT_EQ(queue.cleared, 1);
    exchange.produceSentinel(false);
    EXPECT_TRUE(exchange.passesWithin(kLong)) << "the signal stays";
    EXPECT_EQ(log.messages(),
              (std::vector{waiting, adding, waiting, adding, prefix + "clearing queue", waiting, adding}));
}

TEST(ProducerConsumer, WakesForASetUnderTheMutex) {
    Queue queue;
    Exchange exchange(queue);
    const auto setAfter = [&](int levels) {
        for (int i = 0; i < levels; ++i)
            exchange.lockSyncMutex();
        exchange.setSyncEvent();
    };
    EXPECT_TRUE(exchange.passesWithin(kLong, [&] {
        setAfter(2);
        exchange.unlockSyncMutex();
        exchange.unlockSyncMutex();
    }));
    EXPECT_TRUE(exchange.passesWithin(kLong, [&] {
        std::jthread(setAfter, 1).join();
        exchange.lockSyncMutex();
        exchange.unlockSyncMutex();
    })) << "when the owner has ended";
    EXPECT_FALSE(exchange.passesWithin(kNotYet));
}

TEST(ProducerConsumer, LocksInsideAnOpenRecord) {
    constexpr int kRounds = 10'000;
    const kit::LogCapture log;
    Queue queue;
    Exchange exchange(queue);
    const std::jthread closing([&] {
        for (int i = 0; i < kRounds; ++i)
            exchange.produceSentinel(false);
    });
    for (int i = 0; i < kRounds; ++i) {
        log.getInstance() << setloglevel(9) << "a record";
        exchange.lockSyncMutex();
        exchange.unlockSyncMutex();
        log.getInstance() << &endrecord;
    }
}

TEST(ProducerConsumer, UsesTheQueuesLockWithoutMutexOrEvent) {
    for (const char* refused : {"createMutex", "createEvent"}) {
        Queue queue;
        queue.getLock().unwind();
        const kit::FailingCalls failing(refused);
        EXPECT_TRUE(Exchange(queue).passesWhenCleared());
    }
}

}  // namespace
