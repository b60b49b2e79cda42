// The dispatcher lock and the steps under it: queueing waits, and deciding which waits a signal satisfies.
//
// Lock order: the dispatcher lock is the innermost lock. No memory is allocated and no foreign code runs under it.
// Suspension and termination of a thread are delayed while it holds the lock or is in another Region.
#pragma once

#include <optional>

#include "platform/emulated/wait_object.h"

namespace KestSupport::platform {

/// Holds the dispatcher lock for its lifetime. Wakes threads after it has released the lock.
class Dispatcher {
  public:
    explicit Dispatcher(ThreadRecord& self) noexcept;
    Dispatcher(const Dispatcher&) = delete;
    Dispatcher& operator=(const Dispatcher&) = delete;
    ~Dispatcher();

    /// Ends the wait of a thread for the object: unlinks it and wakes the thread.
    void finish(WaitObject& object, Waiter& waiter, Waiter::Outcome outcome, std::uint32_t result) noexcept;
    /// Makes a queued thread look at its objects and deadlines again.
    void recheck(Waiter& waiter) noexcept;
    /// Signals an object. Without `keep`, only the threads that wait now receive the signal.
    void signal(WaitObject& object, bool keep) noexcept;
    /// Offers a released mutex to the threads that wait for it. Does nothing if another thread has taken it.
    void offer(WaitObject& mutex) noexcept;
    /// The same for a mutex that may have been freed, in which case nothing happens.
    void offerIfContended(const WaitObject* mutex) noexcept;
    /// Marks a mutex as abandoned, since its owner has ended, and offers it.
    void abandon(WaitObject& mutex) noexcept;
    /// Consumes what satisfies the wait, and returns the result of the wait; nothing if the wait is not satisfied.
    std::optional<std::uint32_t> consume(Waiter& waiter) noexcept;

    void enqueue(Waiter& waiter, bool front) noexcept;
    static void dequeue(Waiter& waiter) noexcept;

  private:
    void wake(ThreadRecord& thread) noexcept;

    ThreadRecord& m_self;
    Region m_region;
    std::array<FutexWord*, 8> m_toWake{};
    std::size_t m_wakeCount = 0;
};

/// Signals a timer that is due. A timer becomes signalled only when a thread looks. Called under the dispatcher lock.
void refreshTimer(WaitObject& timer) noexcept;
/// Ends the wait in which the calling thread was terminated, and offers the mutexes that the thread was woken for or
/// was about to offer.
void abandonWait(ThreadRecord& self) noexcept;
/// Offers the mutexes that have waiting threads and no owner. A thread that is about to be suspended may be between the
/// store of a release and the look for waiting threads.
void offerReleasedMutexes(ThreadRecord& self) noexcept;
/// Offers every mutex that has waiting threads and no owner, and abandons those of an ended thread. Visits each mutex
/// that threads wait for. Called under the dispatcher lock.
void settleMutexes(Dispatcher& dispatcher, std::uint32_t endedId) noexcept;

/// Back end: closes the handle of a thread, which is a ThreadObject. The object is freed at once or after the end of
/// its thread.
void closeThread(WaitObject& thread) noexcept;

/// Waits for the calls of the runtime, and takes the dispatcher lock, for a fork. A signal handler may fork while its
/// thread holds that lock.
void lockForFork(ThreadRecord& self) noexcept;
void unlockAfterFork(ThreadRecord& self) noexcept;
/// Makes `self`, which forked, the only thread that the waits know, and frees the dispatcher lock.
void resetInForkedChild(ThreadRecord& self) noexcept;

}  // namespace KestSupport::platform
