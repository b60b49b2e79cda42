// A thread as the waits see it: its id, its end, and the regions in which it is neither suspended nor terminated.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/emulated/futex.h"
#include "platform/emulated/intrusive_list.h"

namespace KestSupport::platform {

class Dispatcher;
class ThreadObject;  // of the back end: a thread made by createThread
struct Waiter;

/// The word that a thread sleeps on in a wait.
///
///   state    meaning                              the sleeping thread      the waking thread
///   armed    queued, not asleep                   -> asleep, then sleeps   -> woken
///   asleep   sleeps, or is about to               sleeps on                -> woken, wakes it
///   woken    the wait ended, or must look again   returns                  -
enum ParkState : std::uint32_t { parkArmed, parkWoken, parkAsleep };

/// In static thread-local storage.
struct ThreadRecord {
    std::uint32_t id = 0;               ///< the id that mutexes have as owner; 0 until the thread is attached
    std::uint32_t firstId = 0;          ///< the first value of id, which changes after announceEnd
    std::uint32_t systemId = 0;         ///< the system's thread id
    bool detached = false;              ///< after announceEnd; the last destructors run
    bool endIsReported = false;         ///< the system will report the end of the thread
    bool leaving = false;               ///< after leaveThread, until announceEnd
    bool holdsForFork = false;          ///< holds the dispatcher lock for a fork
    ThreadObject* thread = nullptr;     ///< set while the thread can be suspended and terminated
    ThreadObject* finishing = nullptr;  ///< set for a thread made by createThread; its end is reported there

    // Written by the thread, and read by its signal handler.
    volatile int regionDepth = 0;
    volatile int runtimeCalls = 0;  ///< the number of nested calls of the runtime, of which a fork waits for the end
    volatile bool controlPending = false;
    volatile bool inDispatcher = false;  ///< holds the dispatcher lock, or waits for it

    // Guarded by the dispatcher lock.
    Waiter* waiter = nullptr;          ///< the queued wait of the thread
    ListLinks<ThreadRecord> inBucket;  ///< in the table of attached threads

    FutexWord parked{parkArmed};
};

// An access to static thread-local storage is one instruction, and safe in a signal handler.
extern constinit thread_local ThreadRecord t_record [[gnu::tls_model("initial-exec")]];

/// Assigns an id to the calling thread and adds it to the table of threads.
void attachThread(ThreadRecord& self) noexcept;
/// Reports the end of the calling thread, which is attached, to the threads that wait for it. Its last destructors may
/// still use the waits.
void announceEnd(ThreadRecord& self) noexcept;
/// A part of announceEnd: abandons the mutexes of the thread.
void detachThread(Dispatcher& dispatcher, ThreadRecord& self) noexcept;
/// Returns whether a thread with this id may still release what it owns. Called under the dispatcher lock.
bool isAttached(std::uint32_t id) noexcept;
/// In a forked child: makes `self` the only attached thread.
void keepOnlyThread(ThreadRecord& self) noexcept;

/// Returns the record of the calling thread and attaches the thread.
inline ThreadRecord& currentRecord() noexcept {
    ThreadRecord& self = t_record;
    if (self.id == 0) [[unlikely]]
        attachThread(self);
    return self;
}

/// Back end: returns the number of the processor that runs the calling thread.
unsigned currentProcessor() noexcept;
/// Back end: returns the system's id of the calling thread.
std::uint32_t systemThreadId() noexcept;
/// Back end: registers announceEnd for the end of the calling thread, after its C++ thread-local objects. Returns false
/// if the system has no room for that.
bool onThreadEnd(ThreadRecord& self) noexcept;
/// Back end: runs a suspension or termination that was requested while the thread was in a region.
void runPendingControl(ThreadRecord& self) noexcept;
/// Back end: the last step of a thread made by createThread. Signals its handle.
void finishThread(ThreadObject& thread, ThreadRecord& self) noexcept;
/// Back end, in a forked child: the thread object belongs to the child, and no request for its thread is left.
void adoptThread(ThreadObject& thread, std::uint32_t systemId) noexcept;
/// Back end, in a forked child: forgets the leaving threads other than `self`.
void forgetLeavingThreads(const ThreadRecord& self) noexcept;

/// Delays suspension and termination of the calling thread for the lifetime of the object.
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

}  // namespace KestSupport::platform
