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
// The lock objects meet the requirements of std::recursive_timed_mutex, so std::scoped_lock, std::unique_lock and
// std::lock take them:
//
//     const std::scoped_lock both(m_first, m_second);  // without a fixed order
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

// The times of std::chrono are used through their own types. The headers that define them take 50 ms to compile, and a
// caller that has such a time has included them.

/// Returns a std::chrono::duration in milliseconds, rounded up; 0 if it is negative.
template <typename Duration>
std::int64_t millisecondsIn(const Duration& time) {
    using Unit = typename Duration::period;
    constexpr double kLongest = 9e18;
    const double milliseconds =
        static_cast<double>(time.count()) * 1000 * static_cast<double>(Unit::num) / static_cast<double>(Unit::den);
    if (!(milliseconds > 0)) return 0;
    const auto whole = static_cast<std::int64_t>(milliseconds < kLongest ? milliseconds : kLongest);
    return static_cast<double>(whole) < milliseconds ? whole + 1 : whole;
}

inline constexpr std::int64_t kLongestAttempt = std::int64_t{24} * 3600 * 1000;

/// Calls attempt(milliseconds), which may wait that long, until it returns true or the time has passed. Returns its
/// last result. There is at least one attempt.
template <typename Duration, typename Attempt>
bool attemptFor(const Duration& time, Attempt attempt) {
    std::int64_t rest = millisecondsIn(time);
    for (; rest > kLongestAttempt; rest -= kLongestAttempt) {
        if (attempt(static_cast<std::uint32_t>(kLongestAttempt))) return true;
    }
    return attempt(static_cast<std::uint32_t>(rest));
}

/// The same until the clock of a std::chrono::time_point has reached it. The last attempt has 0 milliseconds.
template <typename Time, typename Attempt>
bool attemptUntil(const Time& deadline, Attempt attempt) {
    for (;;) {
        const auto now = Time::clock::now();
        if (deadline <= now) return attempt(0U);
        const std::int64_t rest = millisecondsIn(deadline - now);
        if (attempt(static_cast<std::uint32_t>(rest < kLongestAttempt ? rest : kLongestAttempt))) return true;
    }
}

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
    bool lockWithin(std::uint32_t milliseconds);
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

    /// Takes one level and returns true, or returns false at once when another thread holds the lock. In mutex mode a
    /// lock that an ended thread left locked is taken, as lock takes it.
    bool try_lock() { return lockWithin(0); }
    /// The same, and waits up to the given time, a std::chrono::duration or time_point. Critical-section mode looks
    /// once a millisecond whether the lock is free.
    template <typename Duration>
    bool try_lock_for(const Duration& time) {
        return internal::attemptFor(time, [this](std::uint32_t milliseconds) { return lockWithin(milliseconds); });
    }
    template <typename Time>
    bool try_lock_until(const Time& time) {
        return internal::attemptUntil(time, [this](std::uint32_t milliseconds) { return lockWithin(milliseconds); });
    }

    /// Releases every level that the calling thread holds. Does nothing while another thread holds the lock, which
    /// takes 100 milliseconds in mutex mode.
    void unwind();
    /// Returns the number of levels that the owner holds; 0 for a free lock. With several threads it may be out of date
    /// at once.
    int lockCount();

  private:
    LockImplementation& implementation();
    LockImplementation& create();
    bool lockWithin(std::uint32_t milliseconds);
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
    KestCriticalSection(KestCriticalSectionObject& object KEST_SUPPORT_LIFETIMEBOUND, bool lockNow) : m_object(object) {
        if (lockNow) lock();
    }
    KestCriticalSection(const KestCriticalSection&) = delete;
    KestCriticalSection& operator=(const KestCriticalSection&) = delete;
    ~KestCriticalSection() { unlock(); }

    /// Takes one level; blocks without limit.
    void lock() {
        m_object.lock();
        m_locked = true;
    }
    /// Takes one level if the lock is free, as KestCriticalSectionObject::testAndSet, and returns whether it did.
    bool testAndSet() { return m_locked = m_object.testAndSet(); }
    /// Releases the level if the guard holds it.
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
