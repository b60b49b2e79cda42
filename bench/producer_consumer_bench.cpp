// Items that two threads exchange through queues: one item there and back, also beside processes that use all
// processors, and a stream of items. For the thread pool an item is a task.
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include "bench_kit.h"
#include "support/producer_consumer.h"
#ifdef KEST_HAVE_BOOST
#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>
#endif

using namespace KestSupport;
using KestBench::Body;

namespace {

constexpr int kEnd = -1;
constexpr int kStream = 10000;

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
    std::deque<int> m_items;  // guarded by m_mutex
};

template <typename Items>
void thereAndBack(benchmark::State& state) {
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

// The receiver answers once, after the last item of the stream.
template <typename Items>
void stream(benchmark::State& state) {
    Items there, back;
    std::thread partner([&] {
        for (int item = there.receive(); item != kEnd; item = there.receive()) {
            if (item == kStream - 1) back.send(item);
        }
    });
    for (auto _ : state) {
        for (int item = 0; item < kStream; ++item)
            there.send(item);
        benchmark::DoNotOptimize(back.receive());
    }
    there.send(kEnd);
    partner.join();
}

#ifdef KEST_HAVE_BOOST
void thereAndBackByPool(benchmark::State& state) {
    boost::asio::thread_pool pool(1);
    StandardChannel back;
    for (auto _ : state) {
        boost::asio::post(pool, [&back] { back.send(1); });
        benchmark::DoNotOptimize(back.receive());
    }
    pool.join();
}

void streamByPool(benchmark::State& state) {
    boost::asio::thread_pool pool(1);
    StandardChannel back;
    for (auto _ : state) {
        for (int item = 0; item < kStream; ++item) {
            boost::asio::post(pool, [&back, item] {
                if (item == kStream - 1) back.send(item);
            });
        }
        benchmark::DoNotOptimize(back.receive());
    }
    pool.join();
}
#else
const Body thereAndBackByPool = KestBench::kMissing;
const Body streamByPool = KestBench::kMissing;
#endif

}  // namespace

void KestBench::registerBenches() {
    const std::string condition = "mutex and condition variable";
    const std::string pool = "boost::asio::thread_pool";
    Comparison("producer_consumer/there and back")
        .realTime()
        .ours(thereAndBack<Channel>)
        .peer(condition, 1.0, thereAndBack<StandardChannel>)
        .peer(pool, 1.0, thereAndBackByPool);
    Comparison("producer_consumer/there and back beside busy processes")
        .besideBusyProcesses()
        .iterations(500)
        .ours(thereAndBack<Channel>)
        .peer(condition, 1.2, thereAndBack<StandardChannel>);
    Comparison("producer_consumer/stream of " + std::to_string(kStream))
        .realTime()
        .ours(stream<Channel>)
        .peer(condition, 1.0, stream<StandardChannel>)
        .peer(pool, 1.0, streamByPool);
}
