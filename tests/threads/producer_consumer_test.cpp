#include "support/producer_consumer.h"

#include "kit/failing_calls.h"
#include "kit/gate.h"
#include "kit/log_capture.h"

namespace {

using namespace KestSupport;
using namespace std::chrono_literals;

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
    using KestBaseProducerConsumer::unlockSyncMutex;

    // Whether a thread that waits is let go within the time, by a sentinel if wanted.
    bool passesWithin(std::chrono::milliseconds time, bool sentinel = false, bool emptyQueue = false) {
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
        if (emptyQueue) {
            EXPECT_THROW(produceSentinel(true), int);
        } else if (sentinel) {
            produceSentinel(false);
        }
        const bool result = passed.passWithin(time);
        if (!result) setSyncEvent();
        return result;
    }
};

TEST(ProducerConsumer, ASentinelSignalsEachTimeAndTheWaiterThatIsLetGoResetsIt) {
    const std::string place = "KestBaseProducerConsumer::produceSentinel: ";
    const std::string waiting = place + "waiting for lock", adding = place + "adding sentinel";
    const kit::LogCapture log;
    Queue queue;
    Exchange exchange(queue);
    EXPECT_FALSE(exchange.m_sentinel || exchange.passesWithin(30ms));
    EXPECT_TRUE(exchange.passesWithin(10min, true));
    EXPECT_TRUE(exchange.m_sentinel && queue.cleared == 0);
    EXPECT_FALSE(exchange.passesWithin(30ms));
    EXPECT_TRUE(exchange.passesWithin(10min, true, true)) << "even when the queue cannot be cleared";
    EXPECT_TRUE(exchange.m_sentinel && queue.cleared == 1);
    exchange.produceSentinel(false);
    EXPECT_TRUE(exchange.passesWithin(10min)) << "the signal stays";
    EXPECT_EQ(log.messages(),
              (std::vector{waiting, adding, waiting, adding, place + "clearing queue", waiting, adding}));
}

TEST(ProducerConsumer, AThreadMayTakeTheMutexWithinItsOwnRecord) {
    const kit::LogCapture log;
    Queue queue;
    Exchange exchange(queue);
    const std::jthread closing([&] {
        for (int i = 0; i < 10'000; ++i)
            exchange.produceSentinel(false);
    });
    for (int i = 0; i < 10'000; ++i) {
        log.getInstance() << setloglevel(9) << "a record";
        exchange.lockSyncMutex();
        exchange.unlockSyncMutex();
        log.getInstance() << &endrecord;
    }
}

TEST(ProducerConsumer, WithoutMutexOrEventTheQueuesLockServes) {
    for (const char* refused : {"createMutex", "createEvent"}) {
        Queue queue;
        queue.getLock().unwind();
        const kit::FailingCalls failing(refused);
        EXPECT_TRUE(Exchange(queue).passesWithin(10min, true, true));
    }
}

}  // namespace
