// One thread as the waits see it: its id, its end, and the regions in which it is neither suspended nor terminated.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/emulated/intrusive_list.h"
#include "platform/futex.h"

namespace KestSupport::platform {

class Dispatcher;
class ThreadObject;  // the back end's: a thread made by createThread
struct Waiter;

/// What a thread sleeps on in a wait.
///   armed   the wait is queued: a waking thread may still come first
///   woken   a waking thread has come
///   asleep  the thread sleeps: the waking thread stores `woken` and wakes it
enum ParkState : std::uint32_t { kParkArmed, kParkWoken, kParkAsleep };

/// Lives in the thread's static thread-local storage.
struct ThreadRecord {
    std::uint32_t id = 0;               ///< the owner id of mutexes; 0 until the thread is attached
    std::uint32_t firstId = 0;          ///< the first value of id, which changes when the thread's end is announced
    std::uint32_t systemId = 0;         ///< the system's thread id
    bool detached = false;              ///< the thread's end has been announced; its last destructors run
    bool endIsHeard = false;            ///< the system will report the thread's end
    bool leaving = false;               ///< has called leaveThread, and its end has not been announced
    bool holdsForFork = false;          ///< took the dispatcher lock for a fork that is under way
    ThreadObject* thread = nullptr;     ///< set while a thread made here can be suspended and terminated
    ThreadObject* finishing = nullptr;  ///< set for a thread made here; its end is reported to this object

    // Written by the thread itself; its signal handler reads them.
    volatile int regionDepth = 0;
    volatile bool controlPending = false;
    volatile bool inDispatcher = false;  ///< has the dispatcher lock, or waits for it

    // Guarded by the dispatcher lock.
    Waiter* waiter = nullptr;          ///< the wait that the thread is queued for
    ListLinks<ThreadRecord> inBucket;  ///< table of attached threads

    FutexWord parked{kParkArmed};
};

// Static thread-local storage: an access is one instruction, and safe in a signal handler.
extern constinit thread_local ThreadRecord t_record [[gnu::tls_model("initial-exec")]];

/// Gives the calling thread an id and an entry in the table of threads.
void attachThread(ThreadRecord& self) noexcept;
/// Announces the end of the calling thread, which is attached, to the threads that wait for it. Its last destructors
/// may still use the waits.
void announceEnd(ThreadRecord& self) noexcept;
/// A part of announceEnd: the thread's mutexes become abandoned.
void detachThread(Dispatcher& dispatcher, ThreadRecord& self) noexcept;
/// True while a thread with this owner id may still release what it owns. Under the dispatcher lock.
bool isAttached(std::uint32_t id) noexcept;
/// In a forked child: makes self the only attached thread.
void keepOnlyThread(ThreadRecord& self) noexcept;

/// The calling thread's record, attached.
inline ThreadRecord& currentRecord() noexcept {
    ThreadRecord& self = t_record;
    if (self.id == 0) [[unlikely]]
        attachThread(self);
    return self;
}

/// Back end: the system's id of the calling thread.
std::uint32_t systemThreadId() noexcept;
/// Back end: has announceEnd called at the end of the calling thread, after its C++ thread-local objects. False when
/// the system has no room for that.
bool hearThreadEnd(ThreadRecord& self) noexcept;
/// Back end: makes a suspension or termination take effect that was requested while the thread was in a region.
void runPendingControl(ThreadRecord& self) noexcept;
/// Back end: the last step of a thread made here. Its handle becomes signalled.
void finishThread(ThreadObject& thread, ThreadRecord& self) noexcept;
/// Back end, in a forked child: the thread object belongs to the child now, and nothing is requested of its thread.
void adoptThread(ThreadObject& thread, std::uint32_t systemId) noexcept;
/// Back end, in a forked child: of the threads that are leaving, at most self is left.
void forgetLeavingThreads(const ThreadRecord& self) noexcept;

/// Delays suspension and termination of the calling thread for its lifetime.
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
