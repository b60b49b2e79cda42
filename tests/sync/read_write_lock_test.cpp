#include "support/read_write_lock.h"

#include "kit/failing_calls.h"
#include "kit/gate.h"
#include "kit/log_capture.h"

namespace {

using KestSupport::KestReadWriteLock;
using namespace std::chrono_literals;

// What another thread can take: a read lock (r), the write lock (w).
std::string obtainable(KestReadWriteLock lock) {
    std::string found;
    std::thread([&] {
        if (lock.tryReadLock()) found += 'r', lock.readUnLock();
        if (lock.tryWriteLock()) found += 'w', lock.writeUnLock();
    }).join();
    return found;
}

TEST(ReadWriteLock, IsOneWithItsCopiesCountsPerThreadAndReportsWhatIsNotHeld) {
    const kit::LogCapture log(1);
    KestReadWriteLock lock, copy(lock);
    lock.readLock();
    EXPECT_TRUE(lock.tryReadLock() && !lock.tryWriteLock());
    std::thread([&] { lock.readUnLock(); }).join();
    copy.readUnLock();
    EXPECT_EQ(obtainable(copy), "r");
    copy.readUnLock();
    copy.readUnLock();
    EXPECT_EQ(obtainable(copy), "rw");
    lock.writeLock();
    EXPECT_FALSE(lock.tryWriteLock() || lock.tryReadLock());
    std::thread([&] { lock = KestReadWriteLock(); }).join();
    std::thread([&] { copy.writeUnLock(); }).join();
    EXPECT_EQ(obtainable(lock), "rw");
    EXPECT_EQ(obtainable(copy), "");
    copy.writeUnLock();
    EXPECT_EQ(obtainable(copy), "rw");
    const std::string reader = "KestReadWriteLock::readUnLock: Trying to release readlock without acquiring it";
    const std::string writer = "KestReadWriteLock::writeUnLock: Trying to release writelock without acquiring it";
    EXPECT_EQ(log.messages(), (std::vector{reader, reader, writer}));
    const kit::FailingCalls failing("createEvent");
    EXPECT_THROW(KestReadWriteLock(), std::bad_alloc);
}

struct Readers {
    KestReadWriteLock lock;
    kit::Gate release, written;
    std::atomic<int> reading{0};
    std::vector<std::jthread> threads;  // joined before the rest goes

    void start(std::size_t count) {
        for (; count > 0; --count) {
            threads.emplace_back([this] {
                lock.readLock();
                ++reading;
                release.pass();
                lock.readUnLock();
            });
        }
    }
};

TEST(ReadWriteLock, AWriterWaitsForTheLastOfManyReadersAndKeepsNoneOut) {
    for (int round = 0; round < 10; ++round) {
        Readers readers;
        readers.lock.readLock();
        readers.start(20);
        kit::await([&] { return readers.reading == 20; });
        readers.threads.emplace_back([&] {
            readers.lock.writeLock();
            readers.written.open();
            readers.lock.writeUnLock();
        });
        EXPECT_FALSE(readers.written.passWithin(10ms));
        readers.start(1);
        kit::await([&] { return readers.reading == 21; });
        if (round % 2 == 0) readers.release.open();
        EXPECT_FALSE(readers.written.passWithin(10ms));
        readers.lock.readUnLock();
        readers.release.open();
    }
}

TEST(ReadWriteLock, OneWaitingReaderIsWokenEachTimeTheLockBecomesFree) {
    // A reader that comes late does not wait at all, so on a busy machine it may take several attempts.
    for (bool oneSlept = false; !oneSlept;) {
        Readers readers;
        readers.lock.writeLock();
        readers.start(2);
        EXPECT_FALSE(readers.written.passWithin(20ms));
        EXPECT_EQ(readers.reading, 0);
        readers.lock.writeUnLock();
        kit::await([&] { return readers.reading > 0; });
        oneSlept = !readers.written.passWithin(30ms) && readers.reading == 1;
        readers.release.open();
    }
}

}  // namespace
