// Many threads use one read-write lock, and the last one destroys it.

#include "kit/gate.h"
#include "support/read_write_lock.h"

namespace {

using KestSupport::KestReadWriteLock;

constexpr int kThreads = 12, kTurns = 20'000;

// Plain memory, so ThreadSanitizer reports threads that the lock does not exclude.
struct Guarded {
    const KestReadWriteLock lock;
    long first = 0, second = 0;
    std::atomic<long> torn{0};

    void use(int thread) {
        for (int turn = 0; turn < kTurns; ++turn) {
            KestReadWriteLock copy(lock);
            const bool yields = turn % 32 == 0;  // so the other threads have to sleep
            if ((turn + thread) % 4 == 0) {
                if (!copy.tryWriteLock()) copy.writeLock();
                ++first;
                if (yields) std::this_thread::yield();
                ++second;
                copy.writeUnLock();
            } else {
                if (!copy.tryReadLock()) copy.readLock();
                copy.readLock();
                if (yields) std::this_thread::yield();
                copy.readUnLock();
                torn += first != second;
                copy.readUnLock();
            }
        }
    }
};

TEST(ReadWriteLockStress, ExcludesWritersAndWakesAll) {
    Guarded guarded;
    std::vector<std::jthread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back([&, i] { guarded.use(i); });
    threads.clear();
    EXPECT_EQ(guarded.torn, 0);
    EXPECT_EQ(guarded.first, kThreads * kTurns / 4);
}

TEST(ReadWriteLockStress, AllowsLastHolderToDestroy) {
    for (int i = 0; i < 2000; ++i) {
        auto lock = std::make_unique<KestReadWriteLock>();
        std::atomic<int> missing{2};
        kit::Gate bothRead;
        const auto read = [&, &shared = *lock] {
            shared.readLock();
            if (--missing == 0) bothRead.open();
            bothRead.pass();
            shared.readUnLock();
        };
        const std::jthread first(read), second(read);
        bothRead.pass();
        lock->writeLock();
        lock->writeUnLock();
        lock.reset();
    }
}

}  // namespace
