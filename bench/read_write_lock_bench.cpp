// The read-write lock against the standard library's: reading with one and with two threads, writing, both in turn.
#include <shared_mutex>

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

// One write after nine reads, by each of two threads.
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

}  // namespace

void KestBench::registerBenches() {
    const std::string peer = "std::shared_mutex";
    Comparison("read_write_lock/read").ours(read<KestReadWriteLock>).peer(peer, 1.5, read<Standard>);
    Comparison("read_write_lock/read two threads")
        .threads(2)
        .ours(read<KestReadWriteLock>)
        .peer(peer, 1.0, read<Standard>);
    Comparison("read_write_lock/write").ours(write<KestReadWriteLock>).peer(peer, 1.5, write<Standard>);
    Comparison("read_write_lock/mixed two threads")
        .threads(2)
        .realTime()
        .ours(mix<KestReadWriteLock>)
        .peer(peer, 0, mix<Standard>);
}
