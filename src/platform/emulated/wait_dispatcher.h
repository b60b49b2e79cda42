// The dispatcher lock, and what happens under it: queueing waits, and deciding which waits a signal satisfies.
//
// Lock order: the dispatcher lock is innermost. Nothing is allocated and no foreign code runs under it. While a thread
// holds it (or is in any other Region), suspension and termination of that thread are delayed.
#pragma once

#include "platform/emulated/wait_object.h"

namespace KestSupport::platform {

/// Holds the dispatcher lock for its lifetime. It wakes threads after it has released the lock.
class Dispatcher {
  public:
    explicit Dispatcher(ThreadRecord& self) noexcept;
    Dispatcher(const Dispatcher&) = delete;
    Dispatcher& operator=(const Dispatcher&) = delete;
    ~Dispatcher();

    /// Ends the wait of a thread: unlinks it and wakes its thread.
    void finish(Waiter& waiter, Waiter::Outcome outcome, std::uint32_t result) noexcept;
    /// Makes a queued thread look at its objects and deadlines again.
    void recheck(Waiter& waiter) noexcept;
    /// Makes an object signalled; with keep false only for the threads that wait now.
    void signal(WaitObject& object, bool keep) noexcept;
    /// Offers a mutex that was released to the threads that wait for it; nothing happens when another thread has it.
    void offer(WaitObject& mutex) noexcept;
    /// The same for a mutex that may have been freed; then nothing happens.
    void offerIfContended(const WaitObject* mutex) noexcept;
    /// Marks a mutex whose owner has ended, and offers it.
    void abandon(WaitObject& mutex) noexcept;
    /// Tries to satisfy a wait for its thread; true with the result when all that it needs was consumed.
    bool consume(Waiter& waiter, std::uint32_t& result) noexcept;

    void enqueue(Waiter& waiter, bool front) noexcept;
    static void dequeue(Waiter& waiter) noexcept;

  private:
    void wake(ThreadRecord& thread) noexcept;

    ThreadRecord& m_self;
    Region m_region;
    std::array<FutexWord*, 8> m_toWake{};
    std::size_t m_wakeCount = 0;
};

/// Makes a timer signalled that is due by now. Nothing else does: a timer is due when a thread looks. Under the
/// dispatcher lock.
void refreshTimer(WaitObject& timer) noexcept;
/// Ends the wait that the calling thread was terminated in, and offers what it was woken for or about to offer.
void abandonWait(ThreadRecord& self) noexcept;
/// Does for the calling thread what a release does after its store: offers the mutexes that have waiters and no owner.
/// A thread that is about to be suspended may have been between the two.
void offerReleasedMutexes(ThreadRecord& self) noexcept;
/// Offers every mutex that has waiters and no owner, and abandons those of an ended thread. Visits each mutex that has
/// waiters. Under the dispatcher lock.
void settleMutexes(Dispatcher& dispatcher, std::uint32_t endedId) noexcept;

/// Back end: closes the handle of a thread, which is a ThreadObject; it is freed at once or when its thread ends.
void closeThread(WaitObject& thread) noexcept;

/// Takes the dispatcher lock for the time of a fork. A signal handler may fork while its thread has that lock already.
void lockForFork(ThreadRecord& self) noexcept;
void unlockAfterFork(ThreadRecord& self) noexcept;
/// Makes self, which forked, the only thread that the waits know, and frees the dispatcher lock.
void resetInForkedChild(ThreadRecord& self) noexcept;

}  // namespace KestSupport::platform
