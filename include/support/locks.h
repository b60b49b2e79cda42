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
#ifdef __GLIBCXX__
// Clocks and durations without the calendars and streams of <chrono>, which take 100 ms to compile.
#include <shared_mutex>
#else
#include <chrono>
#endif

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

/// Calls attempt(milliseconds), which may wait that long, until it returns true or the clock has reached the deadline.
/// Returns its last result. The last call has 0 milliseconds, so there is at least one attempt.
template <typename Clock, typename Duration, typename Attempt>
bool attemptUntil(const std::chrono::time_point<Clock, Duration>& deadline, Attempt attempt) {
    constexpr std::chrono::milliseconds kLongestWait = std::chrono::hours(24);
    for (;;) {
        const auto now = Clock::now();
        if (deadline <= now) return attempt(0U);
        const auto rest = deadline - now;
        const auto wait = rest < kLongestWait ? std::chrono::ceil<std::chrono::milliseconds>(rest) : kLongestWait;
        if (attempt(static_cast<std::uint32_t>(wait.count()))) return true;
    }
}

/// The same for a time from now on the steady clock. A time above 100 years has no end.
template <typename Rep, typename Period, typename Attempt>
bool attemptFor(const std::chrono::duration<Rep, Period>& time, Attempt attempt) {
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::duration<double> kForever = std::chrono::hours(24 * 365 * 100);
    const std::chrono::duration<double> seconds = time;  // every time fits
    if (seconds.count() <= 0) return attempt(0U);
    if (seconds >= kForever) return attemptUntil(Clock::time_point::max(), attempt);
    return attemptUntil(Clock::now() + std::chrono::ceil<Clock::duration>(time), attempt);
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
    /// The same, and waits up to the given time. Critical-section mode looks once a millisecond whether the lock is
    /// free.
    template <typename Rep, typename Period>
    bool try_lock_for(const std::chrono::duration<Rep, Period>& time) {
        return internal::attemptFor(time, [this](std::uint32_t milliseconds) { return lockWithin(milliseconds); });
    }
    template <typename Clock, typename Duration>
    bool try_lock_until(const std::chrono::time_point<Clock, Duration>& time) {
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
