// The objects that threads wait for, and the waits.
//
// Each object has a state word. If no thread is queued, single atomic instructions change events and mutexes. All other
// steps run under the dispatcher lock (wait_dispatcher.h): the queues, timers, the end of threads, and every step over
// several objects. Two bits of the word send the fast paths there:
//
//   kQueued  threads are queued on the event, so a signal must find those that it satisfies
//   kFrozen  a step over several objects, or a hand-over, is in progress, and no fast path may consume the event
//
// A mutex has its state in the owner word:
//
//   owner      state                                   taken by                      released by
//   kNoOwner   free                                    any thread: CAS to its id     -
//   an id      owned by that thread, with              the owner: one more level     the owner: stores kNoOwner
//              innerLevels + 1 levels
//   an id of   abandoned; no thread has noticed        under the dispatcher lock:    settleMutexes: kReserved, if
//   no thread                                          kWaitAbandoned                threads wait
//   kReserved  abandoned, if the flag is set; else     under the dispatcher lock:    end of the step: kNoOwner
//              held by a step over several objects     kWaitAbandoned
//
// A release is a plain store to the owner word, followed by a look for waiting threads, without a locked instruction
// between the two. The look must not read the mutex, since the next owner may have freed it. It reads a table
// (ContendedMutexes) that is hashed by the address of the mutex and that exists as long as the library:
//
//   releasing thread                     thread that begins to wait
//   owner = none                         link the mutex into the table
//   (nothing, or a full barrier)         barrier in all threads
//   look at the table: contended?        look at the owner: free?
//
//   table     owner    result
//   not yet   free     the waiting thread sees it and takes the mutex
//   linked    taken    the releasing thread sees the link and offers the mutex under the dispatcher lock
//   linked    free     both; the offer finds the queue empty or the mutex taken, and does nothing
//   not yet   taken    the barrier excludes this. If the system has refused it, the releasing threads change to their
//                      own barriers. A release that began before the change is found by the waiting thread, which looks
//                      at the owner again after kDrainTime
//
// A waiting thread is queued on all of its objects, with one link for each. The thread that signals an object decides
// under the dispatcher lock which waits the signal satisfies. It consumes the objects for those waits, unlinks them and
// wakes their threads. So a wait is satisfied as a whole or not at all, and no pulse is lost between two looks. A mutex
// is an exception for speed: its longest waiter is woken to try again, and a running thread may take the mutex first. A
// waiter that has failed for a millisecond is given the mutex.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "platform/emulated/futex.h"
#include "platform/emulated/intrusive_list.h"
#include "platform/emulated/thread_record.h"
#include "platform/wait.h"

namespace KestSupport::platform {

/// One wait in the queue of one object.
struct Link {
    ListLinks<Link> inQueue;
    WaitObject* object = nullptr;
    Waiter* waiter = nullptr;
};

/// One wait of one thread. It is on the stack of that thread.
struct Waiter {
    enum class Outcome : std::uint8_t { waiting, satisfied, retry };

    ThreadRecord* thread = nullptr;
    Link* links = nullptr;  ///< one for each object, in the order of the caller
    ListLinks<Waiter> inAll;
    std::size_t count = 0;
    bool all = false;
    bool wantsHandOver = false;  ///< has waited for a mutex for too long after its first wake-up
    bool looksAgain = false;     ///< must look at its mutexes again after kDrainTime
    bool queued = false;
    Outcome outcome = Outcome::waiting;
    std::uint32_t result = kWaitFailed;
};

/// Hints for the next wait: whether a spin pays.
struct SpinHint {
    static constexpr std::uint32_t kProcessor = 0xFFFF;  // the bits of the processor
    static constexpr std::uint32_t kNoWaker = kProcessor;

    static std::uint32_t wakerOf(std::uint32_t id, unsigned processor) noexcept {
        return id << 16 | (processor & kProcessor);
    }

    std::atomic<std::uint32_t> failures{0};          // successive spins without success
    std::atomic<std::uint32_t> lastWaker{kNoWaker};  // the thread that ended the last wait, and its processor
};

/// A waitable object.
class WaitObject {
  public:
    enum class Kind : std::uint8_t { autoEvent, manualEvent, mutex, autoTimer, manualTimer, thread };

    // Bits of the word. A mutex does not use it.
    static constexpr std::uint32_t kSignalled = 1;
    static constexpr std::uint32_t kQueued = 2;
    static constexpr std::uint32_t kFrozen = 4;

    // Values of the owner word of a mutex that are no ids.
    static constexpr std::uint32_t kNoOwner = 0;
    static constexpr std::uint32_t kReserved = 0xFFFFFFFF;

    explicit WaitObject(Kind objectKind) noexcept : kind(objectKind) {}
    WaitObject(const WaitObject&) = delete;
    WaitObject& operator=(const WaitObject&) = delete;

    bool isTimer() const noexcept { return kind == Kind::autoTimer || kind == Kind::manualTimer; }
    bool isEvent() const noexcept { return kind == Kind::autoEvent || kind == Kind::manualEvent; }
    bool resetsItself() const noexcept { return kind == Kind::autoEvent || kind == Kind::autoTimer; }
    bool isSignalled() const noexcept { return (word.load(std::memory_order_acquire) & kSignalled) != 0; }
    /// Called by the owner of the mutex, so it needs no locked instruction.
    void addLevels(int change) noexcept {
        innerLevels.store(innerLevels.load(std::memory_order_relaxed) + static_cast<std::uint32_t>(change),
                          std::memory_order_relaxed);
    }

    const Kind kind;
    FutexWord word{0};
    FutexWord owner{kNoOwner};  // mutex
    // Mutex: the levels of the owner beyond the first. So taking a free mutex writes only the owner. Written by the
    // owner, or by the thread that takes the mutex for it.
    std::atomic<std::uint32_t> innerLevels{0};
    SpinHint hint;
    std::uint32_t forks = 0;  // thread: forkCount of its process

    // Guarded by the dispatcher lock.
    IntrusiveList<Link, &Link::inQueue> queue;
    bool abandoned = false;             // mutex: the owner has ended; owner is kReserved
    WaitObject* nextInChain = nullptr;  // mutex with waiting threads: ContendedMutexes
    Deadline due = Deadline::never();   // timer
    Deadline::Time period = 0;          // timer: nanoseconds; 0: only once
};

/// The mutexes that threads wait for, chained by the hash of their address. Changed under the dispatcher lock.
class ContendedMutexes {
  public:
    /// Returns false if no thread is queued on the mutex. Called by a thread that has just released it. Uses only the
    /// address, so the mutex may have been freed. May wrongly return true if several contended mutexes share a chain.
    bool mayHold(const WaitObject* mutex) const noexcept {
        const std::uintptr_t chain = m_chains[chainOf(mutex)].load(std::memory_order_relaxed);
        if (chain == kEmpty) [[likely]]
            return false;
        return chain == reinterpret_cast<std::uintptr_t>(mutex) || (chain & kSeveral) != 0;
    }

    // The functions below are called under the dispatcher lock.
    void link(WaitObject& mutex) noexcept;
    void unlink(WaitObject& mutex) noexcept;
    /// Returns the mutex at that address if threads wait for it, else null.
    WaitObject* find(const WaitObject* address) noexcept;
    /// Calls `visit` for every mutex, and perhaps for one that a visit has unlinked. `visit` links no mutex.
    template <typename Visit>
    void forEach(Visit visit) noexcept {
        for (std::size_t chain = 0; m_count != 0 && chain < m_chains.size(); ++chain) {
            for (WaitObject* mutex = first(chain); mutex != nullptr; mutex = mutex->nextInChain)
                visit(*mutex);
        }
    }

  private:
    // A chain is kEmpty or the address of its first mutex. If there are more, the lowest bit is set. So a release needs
    // one word of it.
    static constexpr std::uintptr_t kEmpty = 0;
    static constexpr std::uintptr_t kSeveral = 1;
    static_assert(alignof(WaitObject) > kSeveral);

    static std::size_t chainOf(const WaitObject* mutex) noexcept {
        // Multiplicative hashing by the golden ratio. The upper bits select one of 1024 chains.
        return (reinterpret_cast<std::uintptr_t>(mutex) * std::uint64_t{0x9E3779B97F4A7C15}) >> 54;
    }
    WaitObject* first(std::size_t chain) const noexcept {
        // NOLINTNEXTLINE(performance-no-int-to-ptr): the rest is the address
        return reinterpret_cast<WaitObject*>(m_chains[chain].load(std::memory_order_relaxed) & ~kSeveral);
    }
    void setFirst(std::size_t chain, WaitObject* mutex) noexcept;

    std::array<std::atomic<std::uintptr_t>, 1024> m_chains{};
    std::size_t m_count = 0;
};

extern constinit ContendedMutexes g_contended;

/// How many forks separate this process from the one that loaded the library. Written in a child that has one thread.
extern constinit std::uint32_t g_forks;

}  // namespace KestSupport::platform
