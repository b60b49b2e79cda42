// An item handed to a second thread and back, through two queues; also beside processes that take all of the
// processors.
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include "bench_kit.h"
#include "support/producer_consumer.h"

using namespace KestSupport;

namespace {

class Queue : public KestBaseSynchronizedQueue {
  public:
    void clear() override { items.clear(); }
    std::deque<int> items;  // guarded by the mutex of its channel
};

class Channel : public KestBaseProducerConsumer {
  public:
    Channel() noexcept : KestBaseProducerConsumer(m_items) {}

    void send(int item) {
        lockSyncMutex();
        m_items.items.push_back(item);
        setSyncEvent();
        unlockSyncMutex();
    }

    int receive() {
        lockSyncMutex();
        while (m_items.items.empty())
            waitForSyncEvent();
        const int item = m_items.items.front();
        m_items.items.pop_front();
        unlockSyncMutex();
        return item;
    }

  private:
    Queue m_items;
};

class StandardChannel {
  public:
    void send(int item) {
        const std::lock_guard lock(m_mutex);
        m_items.push_back(item);
        m_changed.notify_one();
    }

    int receive() {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return !m_items.empty(); });
        const int item = m_items.front();
        m_items.pop_front();
        return item;
    }

  private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<int> m_items;
};

template <typename Items>
void handOver(benchmark::State& state) {
    constexpr int kEnd = -1;
    Items there, back;
    std::thread partner([&] {
        for (int item = there.receive(); item != kEnd; item = there.receive())
            back.send(item);
    });
    for (auto _ : state) {
        there.send(1);
        benchmark::DoNotOptimize(back.receive());
    }
    there.send(kEnd);
    partner.join();
}

template <typename Items>
void handOverBusily(benchmark::State& state) {
    const KestBench::BusyProcesses busy;
    handOver<Items>(state);
}

}  // namespace

void KestBench::registerBenches() {
    Comparison("producer_consumer/there and back")
        .realTime()
        .ours(handOver<Channel>)
        .peer("mutex and condition variable", 1.0, handOver<StandardChannel>);
    Comparison("producer_consumer/beside busy processes")
        .realTime()
        .iterations(2000)
        .ours(handOverBusily<Channel>)
        .peer("mutex and condition variable", 1.2, handOverBusily<StandardChannel>);
}
