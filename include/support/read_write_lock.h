// A lock that many threads share for reading and one holds alone for writing.
//
//   KestReadWriteLock     the lock; its copies are the same lock
//   RwLockImplementation  what the copies share; for the library's own use
//
// Read levels are counted per thread: a thread takes as many as it likes, also while a writer waits, and gives back
// each. The write lock is taken once. Nobody has precedence: threads that come while the lock is free or read-locked do
// not wait, so readers that overlap for ever keep a writer out for ever; use a plain lock where that matters.
//
// Of the threads that wait, one is woken when a writer unlocks and one when the last read level is given back. A reader
// that was woken lets the other waiting readers sleep until the lock is free again.
//
// Not to be done, since the thread would wait for itself without end: writeLock by a thread that has the write lock or
// a read level, readLock by a thread that has the write lock.
//
// Threads: every operation may be called by any thread, and copies may be made and destroyed in different ones; one
// lock object is not assigned to while another thread uses that object. What a thread holds when it ends stays held. A
// thread that forks holds in the child what it holds in the parent. Inside, nothing is locked, logged or called while
// the lock's own guard is held.
//
// Lifetime: what the copies share goes with the last of them. A thread that has just got the lock may destroy it, even
// while the one that unlocked is still about to return.
//
// Free locks and read locks among each other stay out of the kernel, and threads that read at once mostly do not touch
// the same memory.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <map>

#include "support/export.h"
#include "support/locks.h"
#include "support/object_base.h"

/// The lock itself: the unit of identity that lock objects share. Its operations are those of KestReadWriteLock.
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

  private:
    class Waiting;
    // The read levels of one thread, on a cache line of their own: thread id, whether a thread waits for them to be
    // given back, count; 0 when no thread has levels here.
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
    void waitUntil(KestSupport::KestCriticalSection& guard, Take take);

    std::array<Slot, 8> m_slots;
    // Id of the thread that has the write lock, 0 for none, and whether threads wait. Written with m_lock held, but for
    // the writer that lets go while nobody waits.
    std::atomic<std::uint64_t> m_gate{0};
    KestSupport::KestCriticalSectionObject m_lock;     // innermost: nothing but m_event is touched under it
    std::map<std::uint32_t, std::uint32_t> m_readers;  // levels of threads that found their slot taken; by m_lock
    std::uint32_t m_waiting = 0;                       // threads that wait; guarded by m_lock
    KestSupport::platform::WaitObject* const m_event;  // auto-reset; raised for one thread that waits
};

namespace KestSupport {

class KEST_SUPPORT_EXPORT KestReadWriteLock {
  public:
    /// A free lock. Throws std::bad_alloc when memory is short; so may the first use.
    KestReadWriteLock();
    /// The same lock as the source.
    KestReadWriteLock(const KestReadWriteLock& other);
    /// Becomes the same lock as the source; the lock of before goes if no copy of it is left.
    KestReadWriteLock& operator=(const KestReadWriteLock& other);
    virtual ~KestReadWriteLock();

    /// Takes one read level; blocks without limit while a thread has the write lock.
    void readLock();
    /// Gives back one read level of the calling thread. Of a thread that has none, it changes nothing and logs at level
    /// 1 "KestReadWriteLock::readUnLock: Trying to release readlock without acquiring it".
    void readUnLock();
    /// Takes the write lock; blocks without limit while any thread has a read level or the write lock.
    void writeLock();
    /// Gives back the write lock. Called by a thread that does not have it, it changes nothing and logs at level 1
    /// "KestReadWriteLock::writeUnLock: Trying to release writelock without acquiring it".
    void writeUnLock();
    /// As readLock, but false at once where that would block, also when the caller itself has the write lock.
    bool tryReadLock();
    /// As writeLock, but false at once where that would block, also when it is the caller who holds something.
    bool tryWriteLock();

  private:
    KestSmartPointer<RwLockImplementation> m_pImpl;  // never empty
};

}  // namespace KestSupport
