#include "support/producer_consumer.h"

#include <functional>

#include "kit/failing_calls.h"
#include "kit/gate.h"
#include "kit/log_capture.h"

namespace KestSupport {
namespace {

const std::string kPrefix = "KestBaseProducerConsumer::produceSentinel: ";

struct Numbers : KestBaseSynchronizedQueue {
    void clear() override {
        const KestCriticalSection guard(getLock(), true);
        if (failsToClear) throw 7;
        items.clear();
    }
    std::vector<int> items;
    bool failsToClear = false;
};

struct Exchange : KestBaseProducerConsumer {
    explicit Exchange(Numbers& queue) : KestBaseProducerConsumer(queue), numbers(queue) {}
    using KestBaseProducerConsumer::lockSyncMutex;
    using KestBaseProducerConsumer::m_sentinel;
    using KestBaseProducerConsumer::setSyncEvent;
    using KestBaseProducerConsumer::unlockSyncMutex;
    using KestBaseProducerConsumer::waitForSyncEvent;

    void produce(int number) {
        lockSyncMutex();
        numbers.items.push_back(number);
        setSyncEvent();
        unlockSyncMutex();
    }
    // The sum of all that came until the sentinel.
    long consume() {
        long sum = 0;
        lockSyncMutex();
        for (;;) {
            while (numbers.items.empty() && !m_sentinel)
                waitForSyncEvent();
            if (numbers.items.empty()) break;
            sum += numbers.items.back();
            numbers.items.pop_back();
        }
        unlockSyncMutex();
        return sum;
    }
    Numbers& numbers;
};

// Whether a thread that waits now is let go; the mutex is held afterwards exactly by that thread.
bool passesWithin(Exchange& exchange, std::chrono::milliseconds time, const std::function<void()>& wake) {
    auto passed = std::make_shared<kit::Gate>();
    kit::Gate locked;
    std::thread waiter([&exchange, &locked, passed] {
        exchange.lockSyncMutex();
        exchange.lockSyncMutex();
        exchange.unlockSyncMutex();
        locked.open();
        exchange.waitForSyncEvent();
        passed->open();
        exchange.unlockSyncMutex();
    });
    locked.pass();
    wake();
    const bool result = passed->passWithin(time);
    if (!result) exchange.setSyncEvent();
    waiter.join();
    return result;
}

using namespace std::chrono_literals;

TEST(ProducerConsumer, ASignalStaysUntilAWaiterTakesItAndResetsIt) {
    Numbers queue;
    Exchange exchange(queue);
    EXPECT_FALSE(exchange.m_sentinel);
    EXPECT_FALSE(passesWithin(exchange, 30ms, [] {})) << "not set in the beginning";
    exchange.setSyncEvent();
    EXPECT_TRUE(passesWithin(exchange, 10min, [] {}));
    EXPECT_FALSE(passesWithin(exchange, 30ms, [] {})) << "the waiter before has reset it";
    EXPECT_TRUE(passesWithin(exchange, 10min, [&] { exchange.produceSentinel(false); }));
    EXPECT_TRUE(exchange.m_sentinel);
    EXPECT_TRUE(passesWithin(exchange, 10min, [&] { exchange.produceSentinel(true); })) << "it signals again";
    EXPECT_TRUE(exchange.m_sentinel);
}

TEST(ProducerConsumer, TheSentinelKeepsOrClearsTheQueueAndLogsItsSteps) {
    const kit::LogCapture log;
    Numbers queue;
    Exchange exchange(queue);
    exchange.produce(1);
    exchange.produceSentinel(false);
    EXPECT_EQ(queue.items.size(), 1u);
    exchange.produceSentinel(true);
    EXPECT_TRUE(queue.items.empty());
    EXPECT_EQ(log.messages(),
              (std::vector{kPrefix + "waiting for lock", kPrefix + "adding sentinel", kPrefix + "waiting for lock",
                           kPrefix + "adding sentinel", kPrefix + "clearing queue"}));
    const kit::LogCapture quiet(8);
    Exchange other(queue);
    queue.failsToClear = true;
    EXPECT_TRUE(passesWithin(other, 10min, [&] { EXPECT_THROW(other.produceSentinel(true), int); }));
    EXPECT_EQ(quiet.text(), "");
}

TEST(ProducerConsumer, EveryItemArrivesOnceAlsoWhenTheSystemGivesNoCondition) {
    for (const char* refused : {"", "createMutex", "createEvent"}) {
        Numbers queue;
        std::unique_ptr<Exchange> exchange;
        if (*refused != 0) {
            const kit::FailingCalls failing(refused);
            exchange = std::make_unique<Exchange>(queue);
        } else {
            exchange = std::make_unique<Exchange>(queue);
        }
        std::atomic<long> sum{0};
        std::vector<std::thread> producers, consumers;
        for (int i = 0; i < 4; ++i) {
            consumers.emplace_back([&] { sum += exchange->consume(); });
            producers.emplace_back([&] {
                for (int number = 1; number <= 1000; ++number)
                    exchange->produce(number);
            });
        }
        for (std::thread& producer : producers)
            producer.join();
        exchange->produceSentinel(false);
        for (std::thread& consumer : consumers)
            consumer.join();
        EXPECT_EQ(sum, 4 * 500'500) << refused;
    }
}

}  // namespace
}  // namespace KestSupport
