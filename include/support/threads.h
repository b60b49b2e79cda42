// A thread, its work, and the notification of its end.
//
//   KestThread                one thread; override run, or give it a KestRunnable
//   KestThread::KestRunnable  work that is not a thread itself
//   KestThread::ThreadDone    the notification that the run of a thread has ended
//   KestWorkInformation       base of an argument for the work
//
// KestStoppableThread (stop.h) is a thread that can be asked to stop, with an event for waits and a std::stop_token.
//
// A KestThread runs its work once; only after kill does start run it again. A run that throws, or calls pthread_exit,
// ends with the result 0; the exception is dropped.
//
// Threads: one thread at a time starts, stops, kills and destroys an object. Any thread may wait and query, also during
// a start and a kill. Work and work information are set before start.
//
// Lifetime: the destructor waits for the end of the run, unless the thread is marked for kill. A thread marked for
// death is made with new and not used after start: it deletes itself. The program resumes or kills a suspended thread
// before it destroys the object and before the process exits. A class derived from KestThread that overrides run waits
// for the end of the run (waitForThreadExit) in its own destructor, since the override no longer exists when the base's
// destructor runs. A ThreadDone handler on the ending thread may destroy the thread object or release its last
// reference; later handlers are then not called.
//
// Exit: the static destructors of the library wait until each thread whose run has ended has left the library, for at
// most 5 seconds. They do not wait for runs that have not ended.
//
// Signals: on Linux, stop and kill send the real-time signal SIGRTMIN + 6 to the thread. The library installs its
// handler at the first start and unblocks the signal in each new thread, whatever mask the creating thread has. A
// program does not block, handle or sigwait for this signal. While a thread blocks it, stop and kill have no effect on
// that thread; they return after 10 seconds, and the request takes effect when the thread unblocks the signal. The
// handler is installed with SA_RESTART. Calls that are never restarted (sleep, nanosleep, poll, select, epoll_wait,
// socket calls with a time-out) fail with EINTR in a thread that was stopped and started again.
//
// On Linux, stop and kill do not take effect while the thread runs code of the C or C++ runtime, where it may hold the
// allocator's lock, or while it holds the lock of stdout or stderr. After 5 seconds they take effect there, too. So
// kill takes 5 seconds for a thread that is blocked in puts because a pipe is full: the library cannot distinguish it
// from a thread that is about to write, whose output would be lost. kill then releases the lock of the stream, and a
// part of the output may be lost or written twice. Other locks outside the library stay locked: std::mutex, a FILE of
// the program, the dynamic linker's lock during dlopen.
//
// On Windows, stop and kill take effect while the thread runs code of the program, waits or sleeps, or writes a log
// record to a file. Inside another call of the system that does not come from the C runtime, such as a read from a
// pipe, they take effect when the call has lasted 100 ms. They wait for a thread that is inside the C runtime, the heap
// or the loader, or for their locks, and return after 10 seconds without effect if it stays there, for example in
// fwrite to a full pipe. A standard stream that the thread has locked stays locked.
//
// On Linux, a new thread has the scheduling policy and the niceness that the process had when it loaded the library,
// and not those of the creating thread, as far as the system permits the change (a lower niceness may need a
// privilege).
#pragma once

#include <atomic>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "support/export.h"
#include "support/object_base.h"
#include "support/observer.h"

namespace KestSupport {

/// Base of an argument that a caller gives to the work of a thread.
class KEST_SUPPORT_EXPORT KestWorkInformation : public KestObjectBase {
  public:
    KestWorkInformation() = default;
    KestWorkInformation(const KestWorkInformation&) = default;
    KestWorkInformation& operator=(const KestWorkInformation&) = default;
    ~KestWorkInformation() override;
};

/// One thread of the operating system. Time-outs are milliseconds; -1 waits without limit.
class KEST_SUPPORT_EXPORT KestThread : public KestCollaborator, public KestObjectBase {
  public:
    /// The priorities of setPriority.
    enum t_Priority : int { ABOVE_NORMAL, BELOW_NORMAL, HIGHEST, IDLE, LOWEST, NORMAL, TIME_CRITICAL };

    /// Work for a thread. Both forms of run do nothing and return 0 unless they are overridden.
    class KEST_SUPPORT_EXPORT KestRunnable : public KestObjectBase {
      public:
        ~KestRunnable() override;
        /// Called when the thread has work information.
        virtual int run(KestWorkInformation& info);
        /// Called when it has none.
        virtual int run();
    };

    /// A run ended. The id is not set.
    class KEST_SUPPORT_EXPORT ThreadDone : public KestNotification {
      public:
        /// `exitCode` is the result of the run.
        explicit ThreadDone(int exitCode) noexcept : m_exitCode(exitCode) {}
        // The id has no meaning here and is not copied.
        // NOLINTNEXTLINE(bugprone-copy-constructor-init)
        ThreadDone(const ThreadDone& other) noexcept : KestNotification(), m_exitCode(other.m_exitCode) {}
        ThreadDone& operator=(const ThreadDone& other) noexcept {
            m_exitCode = other.m_exitCode;
            return *this;
        }
        ~ThreadDone() override;

        int m_exitCode;  ///< the result of run; 0 when it threw
    };

    /// Without a name the thread is called "class KestSupport::KestThread".
    KestThread();
    explicit KestThread(const std::string& name);
    /// The thread keeps a reference to the runnable; its own run is then never called.
    explicit KestThread(KestSmartPointer<KestRunnable> runnable);
    KestThread(KestSmartPointer<KestRunnable> runnable, const std::string& name);
    KestThread(const KestThread&) = delete;
    KestThread& operator=(const KestThread&) = delete;
    ~KestThread() override;

    /// Starts the run; resumes a thread that stop suspended (each stop needs one start). When no thread can be made,
    /// also for lack of memory, the call returns and isAlive stays false. Does not block.
    virtual void start();
    /// Suspends the thread at its present instruction; it keeps its locks. Returns when the thread is suspended, or
    /// after 10 seconds when the thread cannot be stopped. The run does not end.
    virtual void stop();
    /// Sets the argument of run; only an argument that is set before the run begins has an effect.
    virtual void setWorkInfo(KestSmartPointer<KestWorkInformation> info);
    /// Waits for the end of the thread: 0 it ended, 258 time-out, -1 the wait failed. Returns 128 at once when the
    /// thread was not started, was killed or has ended its run already.
    virtual int wait(int timeout);
    /// False when there is no thread or the system refuses (raising a priority may need a privilege). Values outside
    /// the enumeration mean NORMAL.
    virtual bool setPriority(t_Priority priority);

    /// Ends the thread by force at its present instruction: no destructor runs, no ThreadDone is sent, its locks
    /// become abandoned. When the thread cannot be ended within 10 seconds (see above), it stays alive and keeps its
    /// handle; the caller may then call kill again. A thread that kills itself does not return.
    void kill();
    /// The object deletes itself when the run has ended.
    void setMarkForDeath() noexcept { m_markForDeath = true; }
    /// The destructor kills the thread instead of waiting for it. It still waits for a thread that cannot be
    /// killed. On the thread itself, for example when the thread is also marked for death, it does neither.
    void setMarkForKill() noexcept { m_markForKill = true; }
    /// Returns when the run has ended and its ThreadDone has been handled. Returns at once on the thread itself, before
    /// start and after kill.
    void waitForThreadExit();

    /// True from a successful start until kill, also after the run has ended.
    bool isAlive() const noexcept { return m_handle.load() != nullptr; }
    /// The result of run; -1 before the run has ended, and for a thread that never started or was killed.
    int getExitCode() const noexcept;
    /// The address of the cell that holds the native handle, owned by the object; null exactly when isAlive is false.
    void* getHandle() noexcept { return m_handle.load(); }
    /// Returns the name, also of a thread that got none.
    const std::string& getName() const noexcept { return m_name; }
    /// A name that the program gives before start, here or to the constructor, is also that of the thread in the tools
    /// of the system: on Linux its first 15 bytes, without a part of a character of UTF-8.
    void setName(const std::string& name) { m_name = name; }

    /// The calling thread's id on this platform, never 0.
    static int getCurrentThreadId() noexcept;
    /// Waits for all of the threads (0), or for the first of them to end (its position in the vector). -1 the wait
    /// failed (also: no thread, more than 64, or one that has no native thread), -2 time-out.
    static int wait(std::vector<KestThread*>& threads, bool waitAll, int timeout);
    /// The same for an array of count threads.
    static int wait(int count, KestThread* threads, bool waitAll, int timeout);

  protected:
    /// The thread's work, when it has work information; override one of the two.
    virtual int run(KestWorkInformation& info);
    /// The thread's work, when it has none.
    virtual int run();

  private:
    struct NativeThread;
    class NativeUse;
    class Run;

    static std::uint32_t enter(void* object);
    static int waitForSet(std::span<KestThread* const> threads, bool waitAll, int timeout);
    int callWork();
    bool isCurrentThread() const noexcept;
    void cleanup() noexcept;
    void freeRetired() noexcept;

    // Null, or complete: it is set before the new thread runs, and cleared before its cell is freed.
    std::atomic<NativeThread*> m_handle{nullptr};
    // The number of calls that may use a cell. While it is not 0, the cells of killed threads are kept in m_retired.
    mutable std::atomic<std::uint32_t> m_uses{0};
    NativeThread* m_retired = nullptr;                 // used by the thread that starts, kills or destroys the object
    KestSmartPointer<KestWorkInformation> m_workInfo;  // read by the new thread when its run begins
    std::string m_name;
    std::atomic<int> m_exitCode{-1};
    std::atomic<bool> m_markForDeath{false};
    std::atomic<bool> m_markForKill{false};
    std::atomic<bool> m_running{false};
    std::atomic<int> m_runThreadId{0};  // the thread that is inside the run, 0 for none
    Run* m_run = nullptr;               // the run; used by its own thread only
    const KestSmartPointer<KestRunnable> m_runnable;
};

}  // namespace KestSupport
