#include "support/read_write_lock.h"

#include <optional>

#include "kit/failing_calls.h"
#include "kit/gate.h"
#include "kit/log_capture.h"

namespace KestSupport {
namespace {

using namespace std::chrono_literals;

const std::string kNoReader = "KestReadWriteLock::readUnLock: Trying to release readlock without acquiring it";
const std::string kNoWriter = "KestReadWriteLock::writeUnLock: Trying to release writelock without acquiring it";

// What another thread can take now: nothing, a read lock ("r"), the write lock too ("rw").
std::string obtainableElsewhere(KestReadWriteLock& lock) {
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

TEST(ReadWriteLock, CountsLevelsPerThreadAndReportsWhatIsNotHeld) {
    const kit::LogCapture log(1);
    KestReadWriteLock lock;
    lock.readLock();
    lock.readLock();
    EXPECT_TRUE(lock.tryReadLock());
    EXPECT_FALSE(lock.tryWriteLock());
    std::thread([&] { lock.readUnLock(); }).join();
    for (int level = 0; level < 3; ++level) {
        EXPECT_EQ(obtainableElsewhere(lock), "r");
        lock.readUnLock();
    }
    EXPECT_EQ(obtainableElsewhere(lock), "rw");
    lock.readUnLock();
    EXPECT_EQ(obtainableElsewhere(lock), "rw");
    lock.writeLock();
    EXPECT_FALSE(lock.tryWriteLock());
    EXPECT_FALSE(lock.tryReadLock());
    lock.readUnLock();
    std::thread([&] { lock.writeUnLock(); }).join();
    EXPECT_EQ(obtainableElsewhere(lock), "");
    lock.writeUnLock();
    EXPECT_EQ(obtainableElsewhere(lock), "rw");
    lock.writeUnLock();
    EXPECT_EQ(log.messages(), (std::vector{kNoReader, kNoReader, kNoReader, kNoWriter, kNoWriter}));
    const kit::LogCapture quiet(0);
    lock.writeUnLock();
    lock.readUnLock();
    EXPECT_EQ(quiet.text(), "");
    const kit::FailingCalls failing("createEvent");
    EXPECT_THROW(KestReadWriteLock(), std::bad_alloc);
}

TEST(ReadWriteLock, CopiesAreOneLockThatLivesAsLongAsOneOfThem) {
    std::optional<KestReadWriteLock> source(std::in_place), copy(*source);
    KestReadWriteLock assigned;
    assigned.readLock();
    assigned = *copy;
    const KestReadWriteLock& itself = assigned;
    assigned = itself;
    EXPECT_TRUE(copy->tryWriteLock());
    EXPECT_EQ(obtainableElsewhere(*source), "");
    std::thread([&] { source.reset(); }).join();
    copy.reset();
    EXPECT_EQ(obtainableElsewhere(assigned), "");
    assigned.writeUnLock();
    EXPECT_EQ(obtainableElsewhere(assigned), "rw");
}

// More readers than there are slots, so that some share one.
TEST(ReadWriteLock, AWriterWaitsForEveryReaderAndKeepsNoneOut) {
    for (const bool mainIsLast : {false, true}) {
        KestReadWriteLock lock;
        lock.readLock();
        kit::Gate release, written;
        std::atomic<int> reading{0};
        std::vector<std::thread> readers;
        const auto read = [&] {
            lock.readLock();
            ++reading;
            release.pass();
            lock.readLock();
            lock.readUnLock();
            lock.readUnLock();
        };
        for (int i = 0; i < 20; ++i)
            readers.emplace_back(read);
        kit::await([&] { return reading == 20; });
        std::thread writer([&] {
            lock.writeLock();
            written.open();
            lock.writeUnLock();
        });
        EXPECT_FALSE(written.passWithin(30ms));
        readers.emplace_back(read);
        kit::await([&] { return reading == 21; });
        if (!mainIsLast) lock.readUnLock();
        release.open();
        if (mainIsLast) {
            for (std::thread& reader : readers)
                reader.join();
            EXPECT_FALSE(written.passWithin(30ms));
            lock.readUnLock();
        }
        writer.join();
        for (std::thread& reader : readers)
            if (reader.joinable()) reader.join();
        EXPECT_EQ(obtainableElsewhere(lock), "rw");
    }
}

TEST(ReadWriteLock, OneWaitingReaderIsWokenEachTimeTheLockBecomesFree) {
    // A reader that comes late does not wait at all, so on a busy machine it may take several attempts.
    bool oneSlept = false;
    for (int attempt = 0; attempt < 200 && !oneSlept; ++attempt) {
        KestReadWriteLock lock;
        kit::Gate release, both;
        std::atomic<int> reading{0};
        const auto read = [&] {
            lock.readLock();
            if (++reading == 2) both.open();
            release.pass();
            lock.readUnLock();
        };
        lock.writeLock();
        std::thread first(read), second(read);
        EXPECT_FALSE(both.passWithin(20ms));
        EXPECT_EQ(reading, 0);
        lock.writeUnLock();
        kit::await([&] { return reading >= 1; });
        oneSlept = !both.passWithin(30ms);
        release.open();
        first.join();
        second.join();
        EXPECT_EQ(reading, 2);
    }
    EXPECT_TRUE(oneSlept);
}

}  // namespace
}  // namespace KestSupport
