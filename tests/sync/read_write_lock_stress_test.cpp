#include <random>

#include "support/read_write_lock.h"

namespace {

using KestSupport::KestReadWriteLock;

constexpr int kThreads = 12;
constexpr int kTurns = 20'000;

// Ordinary memory, so that ThreadSanitizer sees what the lock lets through.
struct Guarded {
    long first = 0, second = 0;
    std::atomic<int> writers{0};
};

struct Outcome {
    long written = 0, torn = 0;
};

// Now and then a holder gives the processor away, so that the others have to sleep.
void dawdle() {
    thread_local unsigned turn = 0;
    if (++turn % 32 == 0) std::this_thread::yield();
}

void read(KestReadWriteLock& lock, const Guarded& data, Outcome& outcome, unsigned levels) {
    for (unsigned level = 0; level < levels; ++level) {
        lock.readLock();
        dawdle();
        outcome.torn += data.first != data.second || data.writers != 0;
    }
    for (unsigned level = 0; level < levels; ++level)
        lock.readUnLock();
}

void write(KestReadWriteLock& lock, Guarded& data, Outcome& outcome) {
    outcome.torn += data.writers++ != 0;
    ++data.first;
    dawdle();
    ++outcome.written;
    ++data.second;
    --data.writers;
    lock.writeUnLock();
}

void use(const KestReadWriteLock& shared, Guarded& data, Outcome& outcome, unsigned seed) {
    std::mt19937 random(seed);
    for (int turn = 0; turn < kTurns; ++turn) {
        KestReadWriteLock lock(shared);
        switch (random() % 8) {
            case 0:
                lock.writeLock();
                write(lock, data, outcome);
                break;
            case 1:
                if (lock.tryWriteLock()) write(lock, data, outcome);
                break;
            case 2:
                if (!lock.tryReadLock()) break;
                read(lock, data, outcome, 1);
                lock.readUnLock();
                break;
            default:
                read(lock, data, outcome, 1 + static_cast<unsigned>(random() % 2));
        }
    }
}

TEST(ReadWriteLockStress, WritersAreAloneNoReaderSeesHalfAWriteAndNobodyIsForgottenAsleep) {
    KestReadWriteLock lock;
    Guarded data;
    std::vector<Outcome> outcomes(kThreads);
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < kThreads; ++i)
        threads.emplace_back([&, i] { use(lock, data, outcomes[i], i); });
    for (std::thread& thread : threads)
        thread.join();
    long written = 0;
    for (const Outcome& outcome : outcomes) {
        written += outcome.written;
        EXPECT_EQ(outcome.torn, 0);
    }
    EXPECT_EQ(data.first, written);
    EXPECT_TRUE(lock.tryWriteLock());
}

TEST(ReadWriteLockStress, WhoGetsTheLockLastMayDestroyIt) {
    for (int i = 0; i < 2000; ++i) {
        auto lock = std::make_unique<KestReadWriteLock>();
        lock->readLock();
        KestReadWriteLock& shared = *lock;
        std::atomic<int> reading{0};
        const auto briefly = [&] {
            shared.readLock();
            ++reading;
            shared.readUnLock();
        };
        std::thread first(briefly), second(briefly);
        while (reading != 2)
            std::this_thread::yield();
        std::thread last([&] {
            lock->writeLock();
            lock->writeUnLock();
            lock.reset();
        });
        shared.readUnLock();
        for (std::thread* thread : {&first, &second, &last})
            thread->join();
    }
}

}  // namespace
