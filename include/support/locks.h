// Recursive locks and the guard through which they are taken.
//
//   KestCriticalSectionObject  a lock, made on its first use and shared by the copies made after that
//   KestMutexObject            the same, always in mutex mode
//   KestCriticalSection        a guard that gives back what it took when it goes out of scope
//   LockBase, LockImplementation   the shared implementation behind the copies; for the library's own use
//
// A lock is in one of two modes. Mutex mode (the default, and that of all of the library's own locks) survives an owner
// that ends without releasing: the next taker gets the lock. In critical-section mode such a lock stays taken. Neither
// enters the kernel while nobody contends.
//
// Threads: lock, unlock, testAndSet, unwind and lockCount may be called by any thread. Copying, assigning and
// destroying lock objects that share one implementation must not happen in two threads at once, nor while one of them
// is held.
#pragma once

#include <atomic>
#include <cstdint>

#include "support/export.h"
#include "support/object_base.h"

namespace KestSupport::platform {
class CriticalSection;
class WaitObject;
}  // namespace KestSupport::platform

/// Counts holders without a locked instruction, since those do not count from two threads at once.
class KEST_SUPPORT_EXPORT LockBase : public KestSupport::KestObjectBase {
  public:
    LockBase() = default;
    LockBase(const LockBase&) = default;
    LockBase& operator=(const LockBase&) = default;
    ~LockBase() override;

    unsigned long addRef() override;
    unsigned long release() override;
};

/// The lock itself: the unit of identity that lock objects share.
struct KEST_SUPPORT_EXPORT LockImplementation : public LockBase {
    explicit LockImplementation(bool isCriticalSection);
    LockImplementation(const LockImplementation&) = delete;
    LockImplementation& operator=(const LockImplementation&) = delete;
    /// Releases what the destroying thread still holds of a mutex.
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

/// A recursive lock. An object that is constructed and never used costs nothing but its own bytes. Its construction is
/// done at compile time: a lock at namespace scope may be used before the dynamic initialisation of any file.
class KEST_SUPPORT_EXPORT KestCriticalSectionObject {
  public:
    /// Mutex mode.
    constexpr KestCriticalSectionObject() noexcept : KestCriticalSectionObject(false) {}
    /// True chooses critical-section mode, false mutex mode.
    constexpr explicit KestCriticalSectionObject(bool isCriticalSection) noexcept
        : m_isCriticalSection(isCriticalSection) {}
    /// Shares the lock of a source that was used before; of a fresh one only the mode is copied, and the copy makes a
    /// lock of its own.
    KestCriticalSectionObject(const KestCriticalSectionObject& other);
    KestCriticalSectionObject& operator=(const KestCriticalSectionObject& other);
    ~KestCriticalSectionObject();

    /// Takes one level; blocks without limit while another thread holds the lock.
    void lock();
    /// Releases one level that the calling thread took. Called by a thread that holds none, it changes nothing.
    void unlock();
    /// Takes one level if it can be had. Critical-section mode never waits; mutex mode waits up to 100 milliseconds. A
    /// mutex that an ended thread left locked is not taken by this call (false), and is free afterwards.
    bool testAndSet();
    /// Gives back every level that the calling thread holds; does nothing while another thread holds the lock (which in
    /// mutex mode takes 100 milliseconds to find out).
    void unwind();
    /// The number of levels that the owner holds, 0 for a free lock; with several threads out of date at once.
    int lockCount();

  private:
    LockImplementation& implementation();
    LockImplementation& create();
    void shareFrom(const KestCriticalSectionObject& other);

    // Null until the first use. Written once by that, and by assignment and destruction.
    std::atomic<KestSmartPointer<LockImplementation>*> m_pImpl{nullptr};
    bool m_isCriticalSection;
};

/// The same lock, always in mutex mode.
class KEST_SUPPORT_EXPORT KestMutexObject : public KestCriticalSectionObject {
  public:
    constexpr KestMutexObject() noexcept : KestCriticalSectionObject(false) {}
};

/// Holds at most one level of a lock and gives it back at the end of its scope. For one thread's use. lock and
/// testAndSet are not called on a guard that holds its level already.
class KestCriticalSection {
  public:
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
