// The read-write lock compared with std::shared_mutex: reading with one and with two threads, writing, both mixed, and
// readers that arrive while others hold the slots in which the lock counts readers fastest.
#include <condition_variable>
#include <mutex>
#include <shared_mutex>
#include <thread>
#include <vector>

#include "bench_kit.h"
#include "support/read_write_lock.h"

using namespace KestSupport;

namespace {

struct Standard {
    void readLock() { m_lock.lock_shared(); }
    void readUnLock() { m_lock.unlock_shared(); }
    void writeLock() { m_lock.lock(); }
    void writeUnLock() { m_lock.unlock(); }

  private:
    std::shared_mutex m_lock;
};

template <typename Lock>
void read(benchmark::State& state) {
    static Lock lock;
    for (auto _ : state) {
        lock.readLock();
        lock.readUnLock();
    }
}

template <typename Lock>
void write(benchmark::State& state) {
    static Lock lock;
    for (auto _ : state) {
        lock.writeLock();
        lock.writeUnLock();
    }
}

// Each of two threads writes once after nine reads.
template <typename Lock>
void mix(benchmark::State& state) {
    static Lock lock;
    static int value = 0;
    int turn = 0;
    for (auto _ : state) {
        if (++turn % 10 == 0) {
            lock.writeLock();
            ++value;
            lock.writeUnLock();
        } else {
            lock.readLock();
            benchmark::DoNotOptimize(value);
            lock.readUnLock();
        }
    }
}

// A lock with sleeping threads, each of which holds a read level until the program ends.
template <typename Lock>
class ReadByOthers {
  public:
    explicit ReadByOthers(int holders) {
        for (int i = 0; i < holders; ++i)
            m_holders.emplace_back([this] { hold(); });
        std::unique_lock guard(m_mutex);
        m_changed.wait(guard, [&] { return m_holding == holders; });
    }
    ReadByOthers(const ReadByOthers&) = delete;
    ReadByOthers& operator=(const ReadByOthers&) = delete;

    ~ReadByOthers() {
        {
            const std::lock_guard guard(m_mutex);
            m_over = true;
        }
        m_changed.notify_all();
        for (std::thread& holder : m_holders)
            holder.join();
    }

    Lock lock;

  private:
    void hold() {
        lock.readLock();
        {
            std::unique_lock guard(m_mutex);
            ++m_holding;
            m_changed.notify_all();
            m_changed.wait(guard, [this] { return m_over; });
        }
        lock.readUnLock();
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    int m_holding = 0;    // guarded by m_mutex
    bool m_over = false;  // guarded by m_mutex
    std::vector<std::thread> m_holders;
};

// A thread's id selects its slot. There are more threads than slots, so that each slot is used.
constexpr int kHolders = 40;

template <typename Lock>
void readBesideOthers(benchmark::State& state) {
    static ReadByOthers<Lock> shared(kHolders);
    for (auto _ : state) {
        shared.lock.readLock();
        shared.lock.readUnLock();
    }
}

}  // namespace

void KestBench::registerBenches() {
    const std::string peer = "std::shared_mutex";
    Comparison("read_write_lock/read").ours(read<KestReadWriteLock>).peer(peer, 1.0, read<Standard>);
    Comparison("read_write_lock/read two threads")
        .threads(2)
        .realTime()
        .ours(read<KestReadWriteLock>)
        .peer(peer, 1.0, read<Standard>);
    Comparison("read_write_lock/write").ours(write<KestReadWriteLock>).peer(peer, 1.2, write<Standard>);
    Comparison("read_write_lock/mixed two threads")
        .threads(2)
        .realTime()
        .ours(mix<KestReadWriteLock>)
        .peer(peer, mix<Standard>);
    Comparison("read_write_lock/eight readers after " + std::to_string(kHolders) + " others")
        .threads(8)
        .realTime()
        .ours(readBesideOthers<KestReadWriteLock>)
        .peer(peer, 1.5, readBesideOthers<Standard>);
}
