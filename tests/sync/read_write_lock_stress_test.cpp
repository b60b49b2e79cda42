#include <random>

#include "support/read_write_lock.h"

namespace {

using KestSupport::KestReadWriteLock;

// Ordinary memory, so that ThreadSanitizer sees what the lock lets through.
struct Guarded {
    const KestReadWriteLock lock;
    long first = 0, second = 0;
    std::atomic<long> written{0}, torn{0};

    void use(unsigned seed) {
        std::mt19937 random(seed);
        for (int turn = 0; turn < 20'000; ++turn) {
            KestReadWriteLock copy(lock);
            const auto choice = random() % 8;
            if (choice == 0) copy.writeLock();
            if (choice == 0 || (choice == 1 && copy.tryWriteLock())) {
                ++first;
                dawdle(turn);
                ++second;
                ++written;
                copy.writeUnLock();
            } else {
                if (choice != 2 || !copy.tryReadLock()) copy.readLock();
                copy.readLock();
                dawdle(turn);
                torn += first != second;
                copy.readUnLock();
                copy.readUnLock();
            }
        }
    }
    // Now and then a holder gives the processor away, so that the others have to sleep.
    static void dawdle(int turn) {
        if (turn % 32 == 0) std::this_thread::yield();
    }
};

TEST(ReadWriteLockStress, WritersAreAloneNoReaderSeesHalfAWriteAndNobodyIsForgottenAsleep) {
    Guarded guarded;
    std::vector<std::jthread> threads;
    for (unsigned i = 0; i < 12; ++i)
        threads.emplace_back([&, i] { guarded.use(i); });
    threads.clear();
    EXPECT_EQ(guarded.torn, 0);
    EXPECT_EQ(guarded.first, guarded.written);
}

TEST(ReadWriteLockStress, WhoGetsTheLockLastMayDestroyIt) {
    for (int i = 0; i < 2000; ++i) {
        auto lock = std::make_unique<KestReadWriteLock>();
        std::atomic<int> reading{0};
        const auto read = [&reading, &shared = *lock] {
            shared.readLock();
            for (++reading; reading < 2;)
                std::this_thread::yield();
            shared.readUnLock();
        };
        const std::jthread first(read), second(read);
        while (reading < 2)
            std::this_thread::yield();
        lock->writeLock();
        lock->writeUnLock();
        lock.reset();
    }
}

}  // namespace
