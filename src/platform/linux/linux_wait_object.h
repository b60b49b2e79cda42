// What the back end's waits and threads share: the objects, the waiting threads, and the lock over both.
//
// Each object has one state word. While nobody is queued, events and mutexes are worked on with single atomic
// instructions. Everything else happens under the dispatcher lock: the queues, timers, the end of threads, and every
// step that concerns more than one object. Two bits of the word send the fast paths there:
//
//   kQueued  threads are queued on the event, so a signal has to look for whom it satisfies
//   kFrozen  a step over several objects, or a hand-over, is under way; nobody may consume the event meanwhile
//
// A mutex has a second word for its owner. kReserved in it does for a mutex what kFrozen does for an event, and stays
// in a mutex that was abandoned, so that its next owner hears of it. Releasing is a plain store to that word followed
// by a look for waiters, without a locked instruction between them. The look must not touch the mutex: the next owner
// may have freed it. So it goes to a table that is hashed by the mutex's address (ContendedMutexes) and lives as long
// as the library:
//
//   releasing thread                     thread that begins to wait
//   owner = none                         link the mutex into the table
//   (nothing, or a full barrier)         barrier in all threads (the membarrier call)
//   look at the table: contended?        look at the owner: free?
//
//   table     owner    what happens
//   not yet   free     the waiting thread sees it and takes the mutex
//   linked    taken    the releasing thread sees the link and offers the mutex under the dispatcher lock
//   linked    free     both; the offer finds the queue empty or the mutex taken, and does nothing
//   not yet   taken    excluded by the barrier. Where the system has refused it, the releasing threads change to a
//                      barrier of their own; one that had begun before the change is found by the waiting thread, which
//                      looks at the owner again after kDrainTime
//
// A thread that waits is queued on all of its objects with one link each. Whoever makes an object signalled decides
// under the dispatcher lock whom that satisfies, consumes on behalf of that thread, unlinks it and wakes it. So a wait
// is satisfied as a whole or not at all, and a pulse cannot pass between two looks. A mutex is an exception for speed:
// its longest waiter is woken to try again, while a running thread may take the mutex first; a waiter that was passed
// over for a millisecond is handed the mutex.
//
// Lock order: the dispatcher lock is innermost. Nothing is allocated and nobody else's code runs under it. While a
// thread holds it (or is in any other Region), suspension and termination of that thread wait.
#pragma once

#include <array>
#include <csetjmp>
#include <cstddef>
#include <cstdint>

#include "platform/linux/linux_futex.h"
#include "platform/thread.h"
#include "platform/wait.h"

namespace KestSupport::platform {

class ThreadObject;
struct Waiter;

/// One thread as the waits see it; it lies in the thread's static thread-local storage.
struct ThreadRecord {
    std::uint32_t id = 0;               ///< what a mutex knows its owner by; 0 until the thread is attached
    std::uint32_t firstId = 0;          ///< the first value of id, which changes when the thread's end is announced
    std::uint32_t systemId = 0;         ///< the kernel's thread id
    bool detached = false;              ///< the thread's end has been announced; its last destructors run
    bool endIsHeard = false;            ///< the system will tell of the thread's end
    bool leaving = false;               ///< a thread made here that has closed its own handle
    bool holdsForFork = false;          ///< took the dispatcher lock for a fork that is under way
    ThreadObject* thread = nullptr;     ///< set while a thread made here can be suspended and terminated
    ThreadObject* finishing = nullptr;  ///< a thread made here: what its end is told to

    // Written by the thread itself; its signal handler reads them.
    volatile int regionDepth = 0;
    volatile bool controlPending = false;
    volatile bool inDispatcher = false;  ///< has the dispatcher lock, or waits for it

    // Guarded by the dispatcher lock.
    Waiter* waiter = nullptr;              ///< the wait that the thread is queued for
    ThreadRecord* nextInBucket = nullptr;  ///< table of attached threads
    ThreadRecord* previousInBucket = nullptr;

    FutexWord parked{0};  ///< Park states below
};

enum ParkState : std::uint32_t { kParkArmed, kParkWoken, kParkAsleep };

// Static thread-local storage: an access is one instruction, and safe in a signal handler.
extern constinit thread_local ThreadRecord t_record [[gnu::tls_model("initial-exec")]];

/// Gives the calling thread an id and a place in the table of threads.
void attachThread(ThreadRecord& self) noexcept;

/// The calling thread's record, attached.
inline ThreadRecord& currentRecord() noexcept {
    ThreadRecord& self = t_record;
    if (self.id == 0) [[unlikely]]
        attachThread(self);
    return self;
}

/// Runs a suspension or termination that came while the thread was in a region.
void runPendingControl(ThreadRecord& self) noexcept;

/// Keeps suspension and termination of the calling thread away for its lifetime.
class Region {
  public:
    explicit Region(ThreadRecord& self) noexcept : m_self(self) { begin(self); }
    Region(const Region&) = delete;
    Region& operator=(const Region&) = delete;
    ~Region() { end(m_self); }

    static void begin(ThreadRecord& self) noexcept {
        self.regionDepth = self.regionDepth + 1;
        std::atomic_signal_fence(std::memory_order_seq_cst);
    }
    static void end(ThreadRecord& self) noexcept {
        std::atomic_signal_fence(std::memory_order_seq_cst);
        self.regionDepth = self.regionDepth - 1;
        std::atomic_signal_fence(std::memory_order_seq_cst);
        if (self.regionDepth == 0 && self.controlPending) runPendingControl(self);
    }

  private:
    ThreadRecord& m_self;
};

/// One place in the queue of one object.
struct Link {
    Link* previous = nullptr;
    Link* next = nullptr;
    WaitObject* object = nullptr;
    Waiter* waiter = nullptr;
};

/// One wait of one thread; on that thread's stack.
struct Waiter {
    enum class Outcome : std::uint8_t { waiting, satisfied, retry };

    ThreadRecord* thread = nullptr;
    Link* links = nullptr;   ///< one for each object, in the caller's order
    Waiter* next = nullptr;  ///< all queued waits
    Waiter* previous = nullptr;
    std::size_t count = 0;
    bool all = false;
    bool wantsHandOver = false;  ///< passed over too often on a mutex
    bool looksAgain = false;     ///< has to look at its mutexes again after kDrainTime
    bool queued = false;
    Outcome outcome = Outcome::waiting;
    std::uint32_t result = kWaitFailed;
};

/// An object that can be waited on.
class WaitObject {
  public:
    enum class Kind : std::uint8_t { autoEvent, manualEvent, mutex, autoTimer, manualTimer, thread };

    static constexpr std::uint32_t kSignalled = 1;  // not for mutexes
    static constexpr std::uint32_t kQueued = 2;
    static constexpr std::uint32_t kFrozen = 4;

    // What the owner word of a mutex holds besides the owner's id.
    static constexpr std::uint32_t kNobody = 0;
    static constexpr std::uint32_t kReserved = 0xFFFFFFFF;

    explicit WaitObject(Kind objectKind) noexcept : kind(objectKind) {}
    WaitObject(const WaitObject&) = delete;
    WaitObject& operator=(const WaitObject&) = delete;

    bool isTimer() const noexcept { return kind == Kind::autoTimer || kind == Kind::manualTimer; }
    bool isEvent() const noexcept { return kind == Kind::autoEvent || kind == Kind::manualEvent; }
    /// By the owner of the mutex, so no locked instruction is needed.
    void addLevels(int change) noexcept {
        innerLevels.store(innerLevels.load(std::memory_order_relaxed) + static_cast<std::uint32_t>(change),
                          std::memory_order_relaxed);
    }
    bool resetsItself() const noexcept { return kind == Kind::autoEvent || kind == Kind::autoTimer; }

    const Kind kind;
    FutexWord word{0};
    FutexWord owner{kNobody};  // mutex
    // Mutex: levels of the owner beyond the first, so that taking a free one writes nothing but the owner. Written by
    // the owner, or by the thread that acts for it.
    std::atomic<std::uint32_t> innerLevels{0};
    std::atomic<std::uint32_t> vainSpins{0};  // spins in a row that ended asleep; a hint for the next wait

    // Guarded by the dispatcher lock.
    Link* first = nullptr;
    Link* last = nullptr;
    bool abandoned = false;               // mutex: the owner ended; owner holds kReserved
    WaitObject* nextContended = nullptr;  // mutex with waiters: its neighbours in a chain of ContendedMutexes
    WaitObject* previousContended = nullptr;
    Deadline due = Deadline::never();  // timer
    Deadline::Time period = 0;         // timer: nanoseconds, 0 for one time
};

/// The mutexes that have waiters, chained by the hash of their address. Changed under the dispatcher lock.
class ContendedMutexes {
  public:
    /// False when no thread is queued on the mutex; for a thread that has just released it. Uses the address only, so
    /// the mutex need not exist any more. True may be wrong when several contended mutexes share a chain.
    bool mayHold(const WaitObject* mutex) const noexcept {
        const std::uintptr_t head = m_heads[chainOf(mutex)].load(std::memory_order_relaxed);
        if (head == 0) [[likely]]
            return false;
        return head == reinterpret_cast<std::uintptr_t>(mutex) || (head & kSeveral) != 0;
    }

    // The rest is called under the dispatcher lock.
    void link(WaitObject& mutex) noexcept;
    void unlink(WaitObject& mutex) noexcept;
    /// The mutex at that address when it has waiters, else null.
    WaitObject* find(const WaitObject* address) noexcept;
    /// Calls visit for every mutex, and perhaps for one that a visit has unlinked. A visit links none.
    template <typename Visit>
    void forEach(Visit visit) noexcept {
        for (std::size_t chain = 0; m_count != 0 && chain < m_heads.size(); ++chain) {
            // A mutex that a visit unlinks keeps its way to those that followed it.
            for (WaitObject* mutex = first(chain); mutex != nullptr; mutex = mutex->nextContended)
                visit(*mutex);
        }
    }

  private:
    static constexpr std::uintptr_t kSeveral = 1;  // in a head: the chain has more than one mutex

    static std::size_t chainOf(const WaitObject* mutex) noexcept {
        // Multiplicative hashing by the golden ratio; the upper bits choose one of 1024 chains.
        return (reinterpret_cast<std::uintptr_t>(mutex) * std::uint64_t{0x9E3779B97F4A7C15}) >> 54;
    }
    WaitObject* first(std::size_t chain) const noexcept {
        // NOLINTNEXTLINE(performance-no-int-to-ptr): a pointer with a mark in its lowest bit
        return reinterpret_cast<WaitObject*>(m_heads[chain].load(std::memory_order_relaxed) & ~kSeveral);
    }
    void setHead(std::size_t chain, WaitObject* mutex) noexcept;

    std::array<std::atomic<std::uintptr_t>, 1024> m_heads{};
    std::size_t m_count = 0;
};

extern constinit ContendedMutexes g_contended;

/// How many forks lie between this process and the one that loaded the library. Written in a child that has one thread.
extern constinit std::uint32_t g_forks;

/// A thread made by createThread. It belongs to its handle and to the running thread; the later of both frees it.
class ThreadObject : public WaitObject {
  public:
    static constexpr std::uint32_t kTerminating = 1U << 31;
    static constexpr std::uint32_t kIdAwaited = 1U << 31;

    ThreadObject(ThreadEntry threadEntry, void* threadArgument) noexcept
        : WaitObject(Kind::thread), entry(threadEntry), argument(threadArgument) {}

    const ThreadEntry entry;
    void* const argument;
    sigjmp_buf exitPoint{};           // where termination leaves the thread's code; the thread's own
    std::atomic<pthread_t> native{};  // valid until joined or detached
    FutexWord systemId{0};            // the kernel's thread id; 0 or kIdAwaited until the thread runs
    FutexWord control{0};             // how often suspended, and kTerminating; changed under the dispatcher lock
    FutexWord standsStill{0};         // 1 while the thread sits in its suspension
    std::atomic<bool> forced{false};  // take the thread even inside the C runtime
    std::atomic<std::uint32_t> signalsHeard{0};
    std::atomic<std::uint32_t> exitCode{kStillActive};
    std::uint32_t forks = g_forks;      // the process that the thread runs in; another one of before is gone
    std::uint32_t terminationCode = 0;  // set before kTerminating
    bool closed = false;                // guarded by the dispatcher lock: the handle is gone
};

/// Holds the dispatcher lock, keeps control signals away, and wakes after the lock is free again.
class Dispatcher {
  public:
    explicit Dispatcher(ThreadRecord& self) noexcept;
    Dispatcher(const Dispatcher&) = delete;
    Dispatcher& operator=(const Dispatcher&) = delete;
    ~Dispatcher();

    /// Ends the wait of a thread: unlinks it and lets it run.
    void finish(Waiter& waiter, Waiter::Outcome outcome, std::uint32_t result) noexcept;
    /// Lets a queued thread look at its objects and deadlines again.
    void recheck(Waiter& waiter) noexcept;
    /// Makes an object signalled for good or, with keep false, only for those who wait now.
    void signal(WaitObject& object, bool keep) noexcept;
    /// Offers a mutex that was released to the threads that wait for it; nothing happens when another thread has it.
    void offer(WaitObject& mutex) noexcept;
    /// The same for a mutex that need not exist any more; then nothing happens.
    void offerIfContended(const WaitObject* mutex) noexcept;
    /// Marks a mutex whose owner has ended, and offers it.
    void abandon(WaitObject& mutex) noexcept;
    /// Tries to satisfy a wait on behalf of its thread; true with the result when all that it needs was consumed.
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

/// Makes a timer signalled when it is due by now; under the dispatcher lock. Nothing else does: a timer is due when
/// somebody looks.
void refreshTimer(WaitObject& timer) noexcept;
/// Gives up the wait that the calling thread was terminated in, and passes on what it was woken for or about to offer.
void abandonWait(ThreadRecord& self) noexcept;
/// Does what the calling thread may just have been about to do: a release is a store, and then an offer to who waits.
/// Others must not wait for the offer while this thread is suspended.
void offerReleasedMutexes(ThreadRecord& self) noexcept;
/// Announces the end of the calling thread, which is attached, to all who may wait for it. Its last destructors may
/// still use the waits.
void announceEnd(ThreadRecord& self) noexcept;
/// A part of announceEnd: the thread's mutexes become abandoned. For the thread's own last steps.
void detachThread(Dispatcher& dispatcher, ThreadRecord& self) noexcept;
/// Frees a thread object whose handle is closed; joins the thread when it has ended.
void closeThread(ThreadObject& thread) noexcept;
/// The last step of a thread made here: its handle becomes signalled.
void finishThread(ThreadObject& thread, ThreadRecord& self) noexcept;
/// Gives the threads that have closed their own handles the time to leave the library's code.
void awaitLeavingThreads() noexcept;
/// Under the dispatcher lock: offers every mutex that has waiters and no owner, and abandons those of an ended thread.
/// One step for each mutex that has waiters.
void settleMutexes(Dispatcher& dispatcher, std::uint32_t endedId) noexcept;
/// True while a thread with this owner id may still release what it owns.
bool isAttached(std::uint32_t id) noexcept;
/// In a forked child: makes the handle of a thread of the parent signalled. Under the dispatcher lock.
void refreshThread(ThreadObject& thread) noexcept;

/// Takes the dispatcher lock for the time of a fork. A signal handler may fork while its thread has that lock already.
void lockForFork(ThreadRecord& self) noexcept;
void unlockAfterFork(ThreadRecord& self) noexcept;
/// Makes self, which forked, the only thread that the waits know, and frees the dispatcher lock.
void resetInForkedChild(ThreadRecord& self) noexcept;
/// A part of that: the table of attached threads.
void keepOnlyThread(ThreadRecord& self) noexcept;

}  // namespace KestSupport::platform
