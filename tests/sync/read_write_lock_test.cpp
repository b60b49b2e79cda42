// Read-write lock: levels, copies and their owners, and which waiting threads wake.
#include "support/read_write_lock.h"

#include <chrono>
#include <new>

#include "kit/failing_calls.h"
#include "kit/gate.h"
#include "kit/log_capture.h"
#include "support/stop.h"

namespace {

using KestSupport::KestReadWriteLock;
using KestSupport::KestStoppableThread;
using KestSupport::KestThread;
using namespace std::chrono_literals;

// What another thread can take: a read level (r), the write lock (w).
std::string obtainable(KestReadWriteLock lock) {
    std::string found;
    std::thread([&] {
        if (lock.tryReadLock()) {
            found += 'r';
            lock.readUnLock();
        }
        if (lock.tryWriteLock()) {
            found += 'w';
            lock.writeUnLock();
        }
    }).join();
    return found;
}

TEST(ReadWriteLock, CountsLevelsAcrossCopies) {
    const kit::LogCapture log(1);
    KestReadWriteLock lock, copy(lock);
    lock.readLock();
    EXPECT_TRUE(lock.tryReadLock());
    EXPECT_FALSE(lock.tryWriteLock());
    std::thread([&] { lock.readUnLock(); }).join();
    copy.readUnLock();
    EXPECT_EQ(obtainable(copy), "r");
    copy.readUnLock();
    copy.readUnLock();
    EXPECT_EQ(obtainable(copy), "rw");
    lock.writeLock();
    EXPECT_FALSE(lock.tryWriteLock());
    EXPECT_FALSE(lock.tryReadLock());
    lock = KestReadWriteLock();
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
    std::vector<std::jthread> threads;  // joined before the other members are destroyed

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

TEST(ReadWriteLock, LetsReadersPassWaitingWriter) {
    constexpr int kReaders = 20;
    for (const bool ownLevelIsLast : {false, true, false, true}) {
        Readers readers;
        readers.lock.readLock();
        readers.start(kReaders);
        kit::await([&] { return readers.reading == kReaders; });
        readers.threads.emplace_back([&] {
            readers.lock.writeLock();
            readers.written.open();
            readers.lock.writeUnLock();
        });
        EXPECT_FALSE(readers.written.passWithin(10ms));
        readers.start(1);
        kit::await([&] { return readers.reading == kReaders + 1; });
        if (ownLevelIsLast) readers.release.open();
        EXPECT_FALSE(readers.written.passWithin(10ms));
        readers.lock.readUnLock();
        readers.release.open();
    }
}

TEST(ReadWriteLock, WakesNextWaiterAfterKilledOne) {
    KestReadWriteLock lock;
    kit::Gate held, release, written;
    KestStoppableThread holder([&] {
        lock.writeLock();
        held.open();
        release.pass();
        lock.writeUnLock();
    });
    KestStoppableThread killed([&] { lock.writeLock(); });
    KestStoppableThread waits([&] {
        lock.writeLock();
        written.open();
    });
    holder.start();
    held.pass();
    for (KestThread* thread : {&killed, &waits}) {
        thread->start();
        EXPECT_FALSE(written.passWithin(20ms));
    }
    killed.stop();  // it gets the signal, and cannot use it
    release.open();
    holder.wait(1000);
    killed.kill();
    written.pass();
}

TEST(ReadWriteLock, WakesOneReaderAfterWriter) {
    // A reader that starts late does not wait, so a busy machine may need several attempts.
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

TEST(ReadWriteLock, WorksWithStandardGuards) {
    using KestSupport::KestReadGuard, KestSupport::KestWriteGuard;
    KestReadWriteLock lock;
    {
        const KestReadGuard reading(lock), again(lock, 1h);
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_FALSE(KestWriteGuard(lock, 20ms));
        EXPECT_GE(std::chrono::steady_clock::now() - begin, 20ms);
        EXPECT_EQ(obtainable(lock), "r");
    }
    EXPECT_EQ(obtainable(lock), "rw");
    kit::Gate written;
    KestWriteGuard writing(lock);
    std::jthread reader([&] { EXPECT_FALSE(KestReadGuard(lock, 20ms)); });
    std::jthread writer([&] {
        const KestWriteGuard guard(lock, std::chrono::steady_clock::now() + 1h);
        EXPECT_TRUE(guard);
        written.open();
    });
    reader.join();
    EXPECT_FALSE(written.passWithin(10ms));
    writing.unlock();
    written.pass();
    EXPECT_TRUE(KestReadGuard(lock, 1h));
    writer.join();
    EXPECT_EQ(obtainable(lock), "rw");
}

}  // namespace
