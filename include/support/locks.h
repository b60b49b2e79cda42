// Recursive locks, and the guard that takes and releases them.
//
//   KestCriticalSectionObject  a lock, created on its first use and shared by the copies made after that
//   KestMutexObject            the same, always in mutex mode
//   KestCriticalSection        a guard that releases its level at the end of its scope
//   LockBase, LockImplementation, internal::LockBias   for the library's own use
//
//   mode              chosen by        an owner that ends without releasing   testAndSet waits
//   mutex             default, false   the next taker gets the lock           up to 100 ms
//   critical section  true             the lock stays taken                   never
//
// All of the library's own locks are in mutex mode. Without contention no mode enters the kernel.
//
// Threads: any thread may call lock, unlock, testAndSet, unwind and lockCount. Copying, assigning and destroying lock
// objects that share one implementation must not happen in two threads at once, nor while a thread holds the lock.
#pragma once

#include <atomic>
#include <cstdint>

#include "support/export.h"
#include "support/object_base.h"

namespace KestSupport::platform {
class CriticalSection;
class WaitObject;
}  // namespace KestSupport::platform

namespace KestSupport::internal {

/// The state of a lock that belongs to one thread until another thread takes it (src/sync/biased_guard.h).
struct LockBias {
    std::atomic<std::uint32_t> owner{0};  // key of the owner; 0: none yet; all ones: the lock belongs to all threads
    std::atomic<bool> busy{false};        // the owner is between its two steps
    std::uint32_t evicted = 0;            // key of the former owner that may still be busy, else 0; by the lock
};

}  // namespace KestSupport::internal

/// Counts the lock objects that share an implementation. These are never copied or destroyed in two threads at once, so
/// the count needs no locked instruction.
class KEST_SUPPORT_EXPORT LockBase : public KestSupport::KestObjectBase {
  public:
    LockBase() = default;
    LockBase(const LockBase&) = default;
    LockBase& operator=(const LockBase&) = default;
    ~LockBase() override;

    unsigned long addRef() override;
    unsigned long release() override;
};

/// The lock itself, which lock objects share. Its operations are those of KestCriticalSectionObject.
struct KEST_SUPPORT_EXPORT LockImplementation : public LockBase {
    /// Throws std::bad_alloc when there is no memory for the lock.
    explicit LockImplementation(bool isCriticalSection);
    LockImplementation(const LockImplementation&) = delete;
    LockImplementation& operator=(const LockImplementation&) = delete;
    /// Releases the levels of a mutex that the destroying thread holds.
    ~LockImplementation() override;

    void lock();
    void unlock();
    bool testAndSet();
    void unwind();
    int lockCount() const;

  private:
    const bool m_isCriticalSection;
    KestSupport::platform::CriticalSection* m_criticalSection = nullptr;  // critical-section mode
    KestSupport::platform::WaitObject* m_mutex = nullptr;                 // mutex mode; it counts its levels
};

namespace KestSupport {

/// A recursive lock. Its first use creates the platform's lock, and throws std::bad_alloc when there is no memory for
/// it; an object that is never used costs only its own bytes. It is constructed at compile time, so a lock at namespace
/// scope can be used before the dynamic initialisation of any file.
class KEST_SUPPORT_EXPORT KestCriticalSectionObject {
  public:
    /// Mutex mode.
    constexpr KestCriticalSectionObject() noexcept : KestCriticalSectionObject(false) {}
    /// True chooses critical-section mode, false mutex mode.
    constexpr explicit KestCriticalSectionObject(bool isCriticalSection) noexcept
        : m_isCriticalSection(isCriticalSection) {}
    /// Shares the lock of a source that was used before. Of an unused source only the mode is copied, and the copy
    /// becomes a separate lock. Throws std::bad_alloc.
    KestCriticalSectionObject(const KestCriticalSectionObject& other);
    /// Releases the former lock, and then does what the copy constructor does.
    KestCriticalSectionObject& operator=(const KestCriticalSectionObject& other);
    ~KestCriticalSectionObject();

    /// Takes one level; blocks without limit while another thread holds the lock.
    void lock();
    /// Releases one level that the calling thread took. Called by a thread that holds none, it changes nothing.
    void unlock();
    /// Takes one level and returns true, or returns false when another thread holds the lock. Critical-section mode
    /// never waits; mutex mode waits up to 100 milliseconds. A mutex that an ended thread left locked is not taken by
    /// this call (false), and is free afterwards.
    bool testAndSet();
    /// Releases every level that the calling thread holds. Does nothing while another thread holds the lock, which
    /// takes 100 milliseconds in mutex mode.
    void unwind();
    /// Returns the number of levels that the owner holds; 0 for a free lock. With several threads it may be out of date
    /// at once.
    int lockCount();

  private:
    LockImplementation& implementation();
    LockImplementation& create();
    void shareFrom(const KestCriticalSectionObject& other);

    // Null until the first use, which writes it once. Assignment and destruction write it too.
    std::atomic<KestSmartPointer<LockImplementation>*> m_pImpl{nullptr};
    bool m_isCriticalSection;
};

/// The same lock, always in mutex mode.
class KEST_SUPPORT_EXPORT KestMutexObject : public KestCriticalSectionObject {
  public:
    constexpr KestMutexObject() noexcept : KestCriticalSectionObject(false) {}
};

/// Holds at most one level of a lock and releases it at the end of its scope. For use by one thread. Calling lock or
/// testAndSet on a guard that holds its level is a fault: the guard would release only one of the two.
class KestCriticalSection {
  public:
    /// Refers to the lock, which must outlive the guard. True takes one level.
    KestCriticalSection(KestCriticalSectionObject& object, bool lockNow) : m_object(object) {
        if (lockNow) lock();
    }
    KestCriticalSection(const KestCriticalSection&) = delete;
    KestCriticalSection& operator=(const KestCriticalSection&) = delete;
    ~KestCriticalSection() { unlock(); }

    void lock() {
        m_object.lock();
        m_locked = true;
    }
    bool testAndSet() { return m_locked = m_object.testAndSet(); }
    void unlock() {
        if (!m_locked) return;
        m_locked = false;
        m_object.unlock();
    }

  private:
    KestCriticalSectionObject& m_object;
    bool m_locked = false;
};

}  // namespace KestSupport
