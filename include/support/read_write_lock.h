// A lock that many threads share for reading, or that one thread holds alone for writing.
//
//   KestReadWriteLock     the lock; its copies are the same lock
//   KestReadGuard         holds a read level until the end of its scope
//   KestWriteGuard        holds the write lock until the end of its scope
//   RwLockImplementation  what the copies share; for the library's own use
//
// Read levels are counted per thread. A thread takes any number, also while a writer waits, and releases each. The
// write lock is taken once. No thread has precedence: a thread that arrives while the lock is free or read-locked does
// not wait. So readers that always overlap keep a writer waiting; use a plain lock where that matters.
//
// One waiting thread wakes when a writer unlocks, and one when the last read level is released. A reader that wakes
// leaves the other waiting readers asleep until the lock is free again.
//
// Two calls block without end, because the thread would wait for itself: writeLock by a thread that has the write lock
// or a read level, and readLock by a thread that has the write lock.
//
// The lock meets the requirements of std::shared_timed_mutex, so std::shared_lock, std::unique_lock and
// std::scoped_lock take it. In those names "shared" is a read level; the others are the write lock.
//
// Threads: any thread may call every operation, and different threads may make and destroy copies. One lock object is
// not assigned to while another thread uses that object. The levels of a thread that ends stay held. A thread that is
// killed while it waits delays the next one by a second at most. A thread that forks holds in the child what it holds
// in the parent. The lock's inner guard is never held while the library logs.
//
// Lifetime: the last copy destroys what the copies share. A thread that got the lock may destroy it at once, even while
// the thread that unlocked it is still inside its call.
//
// Free locks, and readers among each other, do not enter the kernel. Readers of different threads mostly write to
// different cache lines.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <shared_mutex>

#include "support/export.h"
#include "support/locks.h"
#include "support/object_base.h"

namespace KestSupport::platform {
class WaitObject;
}  // namespace KestSupport::platform

/// The lock itself, which lock objects share. Its operations are those of KestReadWriteLock.
struct KEST_SUPPORT_EXPORT RwLockImplementation : public KestSupport::KestObjectBase {
    RwLockImplementation();
    RwLockImplementation(const RwLockImplementation&) = delete;
    RwLockImplementation& operator=(const RwLockImplementation&) = delete;
    ~RwLockImplementation() override;

    void readLock();
    bool tryReadLock();
    void readUnLock();
    void writeLock();
    bool tryWriteLock();
    void writeUnLock();
    bool readLockWithin(std::uint32_t milliseconds);
    bool writeLockWithin(std::uint32_t milliseconds);

  private:
    class Waiting;
    struct Readers;
    // The read levels of one thread, on its own cache line: thread id, mark, count; 0 for a free slot. The mark says
    // that a thread waits for the release of the levels.
    struct alignas(64) Slot {
        std::atomic<std::uint64_t> word{0};
    };

    Slot& slotOf(std::uint32_t thread) noexcept;
    bool readQuickly(std::uint32_t thread, bool& entered) noexcept;
    bool readSlowly(std::uint32_t thread, bool entered, bool mayWait);

    // The rest is called with m_lock held.
    bool writeLocked() const noexcept;
    bool takeRead(std::uint32_t thread);
    bool takeWrite(std::uint32_t thread) noexcept;
    bool holderWillSignal() noexcept;
    void signalIfFree() noexcept;
    template <typename Take>
    bool waitUntil(KestSupport::KestCriticalSection& guard, std::uint32_t milliseconds, Take take);

    Slot m_slots[8];
    // Id of the thread that has the write lock, 0 for none, and whether threads wait. Written with m_lock held, except
    // by a writer that unlocks while no thread waits.
    std::atomic<std::uint64_t> m_gate{0};
    KestSupport::KestCriticalSectionObject m_lock;     // innermost: only m_event is used while it is held
    Readers* m_readers = nullptr;                      // owned, null until the first use; guarded by m_lock
    std::uint32_t m_waiting = 0;                       // number of waiting threads; guarded by m_lock
    KestSupport::platform::WaitObject* const m_event;  // auto-reset; set for one waiting thread
};

namespace KestSupport {

/// The lock. A copy is the same lock.
class KEST_SUPPORT_EXPORT KestReadWriteLock {
  public:
    /// Creates a free lock. Throws std::bad_alloc when memory is short. So may each operation that takes the lock; it
    /// then has taken nothing.
    KestReadWriteLock();
    /// Becomes the same lock as the source.
    KestReadWriteLock(const KestReadWriteLock& other);
    /// Becomes the same lock as the source. The former lock is destroyed if it has no other copy.
    KestReadWriteLock& operator=(const KestReadWriteLock& other);
    virtual ~KestReadWriteLock();

    /// Takes one read level; blocks without limit while a thread has the write lock.
    void readLock();
    /// Releases one read level of the calling thread. If the thread has none, changes nothing and logs at level 1
    /// "KestReadWriteLock::readUnLock: Trying to release readlock without acquiring it".
    void readUnLock();
    /// Takes the write lock; blocks without limit while any thread has a read level or the write lock.
    void writeLock();
    /// Releases the write lock. If the calling thread does not have it, changes nothing and logs at level 1
    /// "KestReadWriteLock::writeUnLock: Trying to release writelock without acquiring it".
    void writeUnLock();
    /// Takes one read level and returns true, or returns false at once while a thread, the caller included, has the
    /// write lock.
    bool tryReadLock();
    /// Takes the write lock and returns true, or returns false at once while a thread, the caller included, has a read
    /// level or the write lock.
    bool tryWriteLock();

    /// The operations above, under the names of the standard library.
    void lock_shared() { readLock(); }
    bool try_lock_shared() { return tryReadLock(); }
    void unlock_shared() { readUnLock(); }
    void lock() { writeLock(); }
    bool try_lock() { return tryWriteLock(); }
    void unlock() { writeUnLock(); }

    /// Take what lock_shared and lock take and return true, or return false when the time, a std::chrono::duration or
    /// time_point, has passed. A thread that would wait for itself gets false.
    template <typename Duration>
    bool try_lock_shared_for(const Duration& time) {
        return internal::attemptFor(time, [this](std::uint32_t milliseconds) { return readLockWithin(milliseconds); });
    }
    template <typename Time>
    bool try_lock_shared_until(const Time& time) {
        return internal::attemptUntil(time,
                                      [this](std::uint32_t milliseconds) { return readLockWithin(milliseconds); });
    }
    template <typename Duration>
    bool try_lock_for(const Duration& time) {
        return internal::attemptFor(time, [this](std::uint32_t milliseconds) { return writeLockWithin(milliseconds); });
    }
    template <typename Time>
    bool try_lock_until(const Time& time) {
        return internal::attemptUntil(time,
                                      [this](std::uint32_t milliseconds) { return writeLockWithin(milliseconds); });
    }

  private:
    bool readLockWithin(std::uint32_t milliseconds);
    bool writeLockWithin(std::uint32_t milliseconds);

    KestSmartPointer<RwLockImplementation> m_pImpl;  // never null
};

/// Take the lock when they are constructed and release it at the end of their scope. Like their standard classes they
/// can be moved, released early, and constructed with std::defer_lock, std::try_to_lock or a time:
///
///     KestReadGuard reading(m_lock);
using KestReadGuard = std::shared_lock<KestReadWriteLock>;
using KestWriteGuard = std::unique_lock<KestReadWriteLock>;

}  // namespace KestSupport
