// The objects that threads wait for, and the waits.
//
// Each object has a state word. While no thread is queued, single atomic instructions change events and mutexes. All
// else happens under the dispatcher lock (wait_dispatcher.h): the queues, timers, the end of threads, and every step
// that concerns several objects. Two bits of the word send the fast paths there:
//
//   kQueued  threads are queued on the event, so a signal has to find those that it satisfies
//   kFrozen  a step over several objects, or a hand-over, is under way: no fast path consumes the event until then
//
// A mutex has its state in the owner word:
//
//   owner      state                                    taken by                      released by
//   kNoOwner   free                                     any thread: CAS to its id     -
//   an id      that thread owns it, innerLevels + 1     the owner: one more level     the owner: store kNoOwner
//              times
//   an id of   abandoned; no thread has noticed         under the dispatcher lock:    settleMutexes: kReserved, if
//   no thread                                           kWaitAbandoned                threads wait
//   kReserved  abandoned, if the flag is set; else a    under the dispatcher lock:    end of the step: kNoOwner
//              step over several objects has it         kWaitAbandoned
//
// Releasing is a plain store to the owner word followed by a look for waiters, without a locked instruction between
// them. The look must not touch the mutex: the next owner may have freed it. So it goes to a table that is hashed by
// the mutex's address (ContendedMutexes) and lives as long as the library:
//
//   releasing thread                     thread that begins to wait
//   owner = none                         link the mutex into the table
//   (nothing, or a full barrier)         barrier in all threads
//   look at the table: contended?        look at the owner: free?
//
//   table     owner    what happens
//   not yet   free     the waiting thread sees it and takes the mutex
//   linked    taken    the releasing thread sees the link and offers the mutex under the dispatcher lock
//   linked    free     both; the offer finds the queue empty or the mutex taken, and does nothing
//   not yet   taken    excluded by the barrier. Where the system has refused it, the releasing threads change to a
//                      barrier of their own; a release that began before the change is found by the waiting thread,
//                      which looks at the owner again after kDrainTime
//
// A thread that waits is queued on all of its objects, with one link for each. The thread that makes an object
// signalled decides under the dispatcher lock which waits that satisfies, consumes for them, unlinks them and wakes
// their threads. So a wait is satisfied as a whole or not at all, and no pulse passes between two looks. A mutex is an
// exception for speed: its longest waiter is woken to try again, and a running thread may take the mutex first. A
// waiter that was passed over for a millisecond is given the mutex.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "platform/emulated/intrusive_list.h"
#include "platform/emulated/thread_record.h"
#include "platform/futex.h"
#include "platform/wait.h"

namespace KestSupport::platform {

/// One wait in the queue of one object.
struct Link {
    ListLinks<Link> inQueue;
    WaitObject* object = nullptr;
    Waiter* waiter = nullptr;
};

/// One wait of one thread; on that thread's stack.
struct Waiter {
    enum class Outcome : std::uint8_t { waiting, satisfied, retry };

    ThreadRecord* thread = nullptr;
    Link* links = nullptr;  ///< one for each object, in the caller's order
    ListLinks<Waiter> inAll;
    std::size_t count = 0;
    bool all = false;
    bool wantsHandOver = false;  ///< passed over for too long on a mutex
    bool looksAgain = false;     ///< has to look at its mutexes again after kDrainTime
    bool queued = false;
    Outcome outcome = Outcome::waiting;
    std::uint32_t result = kWaitFailed;
};

/// An object that can be waited for.
class WaitObject {
  public:
    enum class Kind : std::uint8_t { autoEvent, manualEvent, mutex, autoTimer, manualTimer, thread };

    // The word; a mutex does not use it.
    static constexpr std::uint32_t kSignalled = 1;
    static constexpr std::uint32_t kQueued = 2;
    static constexpr std::uint32_t kFrozen = 4;

    // The owner word of a mutex, besides ids.
    static constexpr std::uint32_t kNoOwner = 0;
    static constexpr std::uint32_t kReserved = 0xFFFFFFFF;

    explicit WaitObject(Kind objectKind) noexcept : kind(objectKind) {}
    WaitObject(const WaitObject&) = delete;
    WaitObject& operator=(const WaitObject&) = delete;

    bool isTimer() const noexcept { return kind == Kind::autoTimer || kind == Kind::manualTimer; }
    bool isEvent() const noexcept { return kind == Kind::autoEvent || kind == Kind::manualEvent; }
    bool resetsItself() const noexcept { return kind == Kind::autoEvent || kind == Kind::autoTimer; }
    bool isSignalled() const noexcept { return (word.load(std::memory_order_acquire) & kSignalled) != 0; }
    /// By the owner of the mutex, so no locked instruction is needed.
    void addLevels(int change) noexcept {
        innerLevels.store(innerLevels.load(std::memory_order_relaxed) + static_cast<std::uint32_t>(change),
                          std::memory_order_relaxed);
    }

    const Kind kind;
    FutexWord word{0};
    FutexWord owner{kNoOwner};  // mutex
    // Mutex: levels of the owner beyond the first, so that taking a free one writes nothing but the owner. Written by
    // the owner, or by the thread that acts for it.
    std::atomic<std::uint32_t> innerLevels{0};
    std::atomic<std::uint32_t> vainSpins{0};  // spins in a row that ended asleep; a hint for the next wait
    std::uint32_t forks = 0;                  // thread: forkCount of the process that it runs in

    // Guarded by the dispatcher lock.
    IntrusiveList<Link, &Link::inQueue> queue;
    bool abandoned = false;            // mutex: the owner ended; owner holds kReserved
    ListLinks<WaitObject> inChain;     // mutex with waiters: ContendedMutexes
    Deadline due = Deadline::never();  // timer
    Deadline::Time period = 0;         // timer: nanoseconds, 0 for one time
};

/// The mutexes that have waiters, chained by the hash of their address. Changed under the dispatcher lock.
class ContendedMutexes {
  public:
    /// False when no thread is queued on the mutex; for a thread that has just released it. Uses the address only, so
    /// the mutex may have been freed. True may be wrong when several contended mutexes share a chain.
    bool mayHold(const WaitObject* mutex) const noexcept {
        const std::uintptr_t mark = m_marks[chainOf(mutex)].load(std::memory_order_relaxed);
        if (mark == kEmpty) [[likely]]
            return false;
        return mark == reinterpret_cast<std::uintptr_t>(mutex) || mark == kSeveral;
    }

    // The rest is called under the dispatcher lock.
    void link(WaitObject& mutex) noexcept;
    void unlink(WaitObject& mutex) noexcept;
    /// The mutex at that address if it has waiters, else null.
    WaitObject* find(const WaitObject* address) noexcept;
    /// Calls visit for every mutex, and perhaps for one that a visit has unlinked. A visit links none.
    template <typename Visit>
    void forEach(Visit visit) noexcept {
        for (std::size_t chain = 0; m_count != 0 && chain < m_chains.size(); ++chain) {
            for (WaitObject* mutex = m_chains[chain].first(); mutex != nullptr; mutex = Chain::next(*mutex))
                visit(*mutex);
        }
    }

  private:
    using Chain = IntrusiveList<WaitObject, &WaitObject::inChain>;

    // A mark is kEmpty, the address of the only mutex in the chain, or kSeveral, which is no address.
    static constexpr std::uintptr_t kEmpty = 0;
    static constexpr std::uintptr_t kSeveral = 1;

    static std::size_t chainOf(const WaitObject* mutex) noexcept {
        // Multiplicative hashing by the golden ratio; the upper bits choose one of 1024 chains.
        return (reinterpret_cast<std::uintptr_t>(mutex) * std::uint64_t{0x9E3779B97F4A7C15}) >> 54;
    }
    void mark(std::size_t chain) noexcept;

    std::array<std::atomic<std::uintptr_t>, 1024> m_marks{};
    std::array<Chain, 1024> m_chains{};
    std::size_t m_count = 0;
};

extern constinit ContendedMutexes g_contended;

/// How many forks lie between this process and the one that loaded the library. Written in a child that has one thread.
extern constinit std::uint32_t g_forks;

}  // namespace KestSupport::platform
