// Native threads, and their suspension and termination by a signal.
//
// A real-time signal to a thread suspends and terminates it. The handler lets the thread continue if the thread is in a
// region of the platform layer, which runs the request at its end, if it holds the lock of a standard output stream, or
// if it is inside the C runtime at a place where it may hold a lock of the allocator. The requesting thread repeats the
// signal until the thread has complied. Termination jumps from the handler to the outermost frame of the thread, so
// nothing is unwound.
#include "platform/thread.h"

#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <new>
#include <utility>

#include "platform/emulated/wait_dispatcher.h"
#include "platform/linux/linux_call.h"
#include "platform/linux/linux_runtime_locks.h"
#include "platform/linux/linux_sanitizers.h"
#include "platform/linux/linux_thread_object.h"

namespace KestSupport::platform {
namespace {

constexpr std::uint32_t kMostSuspensions = 127;
// Nanoseconds between two signals. A thread that mostly allocates is outside the runtime only for a few instructions at
// a time. So the signal is sent often and for long before the thread is stopped inside the runtime.
constexpr Deadline::Time kFirstPause = 20'000;
constexpr Deadline::Time kLongestPause = 200'000;
// If a thread blocks the signal, signals accumulate, and the system limits their number for each user. So the next
// signal waits for a reaction, or for this time.
constexpr std::uint32_t kRepeatAfter = 50;  // milliseconds, like those below
constexpr std::uint32_t kForceAfter = 5000;
constexpr std::uint32_t kGiveUpAfter = 10'000;
constexpr std::uint32_t kLeaveWithin = 5000;
constexpr std::uint32_t kEndsSoonWithin = 10;

// A thread whose handle was closed before its end is joined by the next such thread, and the last one by JoinAtExit. So
// at most one of them is not joined.
struct EndedThread {
    bool exists = false;
    pthread_t native{};

    void join() const noexcept {
        if (exists) pthread_join(native, nullptr);
    }
};
constinit EndedThread g_lastEnded;  // guarded by the dispatcher lock
// The number of threads that are leaving and have not ended, and kAwaited once a thread waits for them.
constinit FutexWord g_leaving{0};
constexpr std::uint32_t kAwaited = 1U << 31;

int controlSignal() noexcept {
    return SIGRTMIN + 6;
}

// The kernel's sched_attr, whose header some C libraries exclude.
struct Scheduling {
    std::uint32_t size, policy;
    std::uint64_t flags;
    std::int32_t niceness;
    std::uint32_t priority;
    std::uint64_t runtime, deadline, period;
};
// The scheduling of new threads: that of the process when it loaded the library.
constinit Scheduling g_defaultScheduling{};

// One call instead of three.
bool readScheduling(pid_t id, Scheduling& scheduling) noexcept {
    return syscall(SYS_sched_getattr, id, &scheduling, sizeof scheduling, 0) == 0;
}

[[gnu::constructor(101)]] void noteDefaultScheduling() noexcept {
    readScheduling(getpid(), g_defaultScheduling);
}

// What a new thread inherits from its creator is examined in the creator, whose processor has the code of these calls
// in its caches.
bool inheritsScheduling() noexcept {
    Scheduling present{};
    return readScheduling(0, present) && present.policy == g_defaultScheduling.policy &&
           present.priority == g_defaultScheduling.priority && present.niceness == g_defaultScheduling.niceness &&
           present.flags == 0;
}

bool inheritsControlSignal() noexcept {
    sigset_t blocked;
    return pthread_sigmask(SIG_BLOCK, nullptr, &blocked) == 0 && sigismember(&blocked, controlSignal()) == 0;
}

// Replaces the policy and niceness that a new thread inherits from its creator. If the system refuses, the thread keeps
// them.
void takeDefaultScheduling() noexcept {
    const Scheduling& wanted = g_defaultScheduling;
    Scheduling present{};
    if (!readScheduling(0, present)) return;
    if (present.policy != wanted.policy || present.priority != wanted.priority) {
        const sched_param parameters{static_cast<int>(wanted.priority)};
        systemCall("inheritScheduling",
                   [&] { return sched_setscheduler(0, static_cast<int>(wanted.policy), &parameters); });
        // A real-time policy hides the niceness.
        readScheduling(0, present);
    }
    if (present.niceness != wanted.niceness) {
        systemCall("inheritScheduling", [&] { return setpriority(PRIO_PROCESS, 0, wanted.niceness); });
    }
}

void unblockControlSignal() noexcept {
    sigset_t control;
    sigemptyset(&control);
    sigaddset(&control, controlSignal());
    pthread_sigmask(SIG_UNBLOCK, &control, nullptr);
}

[[noreturn]] void terminateHere(ThreadObject& thread) noexcept {
    ThreadRecord& self = t_record;
    // From here on the thread takes no request.
    self.thread = nullptr;
    releaseStandardStreams();
    abandonWait(self);
    siglongjmp(thread.exitPoint, 1);
}

// Runs the requests for the calling thread. Returns when there is none.
void complyWithControl(ThreadObject& thread) noexcept {
    for (;;) {
        const std::uint32_t control = thread.control.load(std::memory_order_acquire);
        if ((control & ThreadObject::kTerminating) != 0) terminateHere(thread);
        if (control == 0) break;
        offerReleasedMutexes(t_record);
        thread.hasStopped.store(1);
        futexWake(&thread.hasStopped, kAllSleepers);
        futexWait(thread.control, control);
    }
    thread.hasStopped.store(0, std::memory_order_release);
}

void onControlSignal(int, siginfo_t*, void* context) {
    const int savedError = errno;
    ThreadRecord& self = t_record;
    if (ThreadObject* const thread = self.thread; thread != nullptr) {
        thread->signalsHeard.fetch_add(1, std::memory_order_relaxed);
        if (self.regionDepth != 0) {
            self.controlPending = true;
        } else if (thread->forced.load(std::memory_order_relaxed) || !mayHoldRuntimeLock(context)) {
            complyWithControl(*thread);
        }
    }
    errno = savedError;
}

bool installControlSignal() noexcept {
    static std::atomic<bool> installed{false};
    if (installed.load(std::memory_order_acquire)) return true;
    struct sigaction action {};
    action.sa_sigaction = &onControlSignal;
    action.sa_flags = SA_SIGINFO | SA_RESTART;
    sigemptyset(&action.sa_mask);
    if (systemCall("prepareThreads", [&] { return sigaction(controlSignal(), &action, nullptr); }) != 0) return false;
    installed.store(true, std::memory_order_release);
    return true;
}

bool hasEnded(const ThreadObject& thread) noexcept {
    return thread.forks != g_forks || (thread.word.load(std::memory_order_acquire) & WaitObject::kSignalled) != 0;
}

// Returns the kernel's id of a thread, or 0 if a new thread has not stored it.
std::uint32_t systemIdOf(const ThreadObject& thread) noexcept {
    const std::uint32_t id = thread.systemId.load(std::memory_order_acquire);
    return id == ThreadObject::kIdAwaited ? 0 : id;
}

std::uint32_t awaitSystemId(ThreadObject& thread) noexcept {
    for (;;) {
        if (const std::uint32_t id = systemIdOf(thread); id != 0) return id;
        std::uint32_t none = 0;
        thread.systemId.compare_exchange_strong(none, ThreadObject::kIdAwaited);
        futexWait(thread.systemId, ThreadObject::kIdAwaited);
    }
}

// Returns whether a failed signal may succeed later: the thread may just have ended, or the queue of signals is full.
bool mayWorkLater(int error) noexcept {
    return error == ESRCH || error == EAGAIN;
}

// Signals the thread until it has complied. When a signal is sent, the id may belong to another thread, which has no
// request and continues.
template <typename Complied>
bool interruptUntil(ThreadObject& thread, FutexWord& word, Complied complied) noexcept {
    const Deadline force = Deadline::after(kForceAfter);
    const Deadline giveUp = Deadline::after(kGiveUpAfter);
    Deadline repeat = Deadline::at(0);
    std::uint32_t heardBefore = 0;
    for (Deadline::Time pause = kFirstPause; !complied(); pause = std::min(pause * 2, kLongestPause)) {
        const Deadline::Time now = Deadline::now();
        if (giveUp.hasPassed(now)) return false;
        if (force.hasPassed(now)) thread.forced.store(true, std::memory_order_relaxed);
        const std::uint32_t heard = thread.signalsHeard.load(std::memory_order_relaxed);
        const std::uint32_t id = systemIdOf(thread);
        if (id != 0 && (heard != heardBefore || repeat.hasPassed(now))) {
            heardBefore = heard;
            repeat = Deadline::after(kRepeatAfter);
            if (systemCall("interruptThread", [&] { return syscall(SYS_tgkill, getpid(), id, controlSignal()); }) !=
                    0 &&
                !mayWorkLater(errno)) {
                return complied();
            }
        }
        const std::uint32_t state = word.load(std::memory_order_acquire);
        if (!complied()) futexWait(word, state, Deadline::at(now + pause));
    }
    return true;
}

// The last steps of a thread made by createThread, also if pthread_exit unwinds its stack.
class ThreadEnd {
  public:
    explicit ThreadEnd(ThreadRecord& self) noexcept : m_self(self) {}
    ThreadEnd(const ThreadEnd&) = delete;
    ThreadEnd& operator=(const ThreadEnd&) = delete;
    ~ThreadEnd() {
        // The frame that termination jumps to is about to be left.
        m_self.thread = nullptr;
        std::atomic_signal_fence(std::memory_order_seq_cst);
        if (!m_self.endIsReported) announceEnd(m_self);
    }

  private:
    ThreadRecord& m_self;
};

void* runThread(void* argument) {
    auto* const thread = static_cast<ThreadObject*>(argument);
    t_record.finishing = thread;
    ThreadRecord& self = currentRecord();
    thread->native.store(pthread_self(), std::memory_order_relaxed);
    if (!thread->inheritsSignal) unblockControlSignal();
    if (!thread->inheritsScheduling) takeDefaultScheduling();
    const ThreadEnd end(self);
    if (sigsetjmp(thread->exitPoint, 0) == 0) {
        thread->exitCode.store(0, std::memory_order_relaxed);  // the code of a thread that calls pthread_exit
        if (thread->systemId.exchange(self.systemId) != 0) futexWake(&thread->systemId, kAllSleepers);
        self.thread = thread;
        complyWithControl(*thread);
        thread->exitCode.store(thread->entry(thread->argument), std::memory_order_relaxed);
    } else {
        thread->exitCode.store(thread->terminationCode, std::memory_order_relaxed);
    }
    return nullptr;
}

ThreadObject* asThread(WaitHandle handle) noexcept {
    return handle != nullptr && handle->kind == WaitObject::Kind::thread ? static_cast<ThreadObject*>(handle) : nullptr;
}

}  // namespace

// A forked child has no thread of its parent that could end.
void forgetLeavingThreads(const ThreadRecord& self) noexcept {
    g_lastEnded = {};
    g_leaving.store(self.leaving ? 1 : 0, std::memory_order_relaxed);
}

namespace {

// The wait is limited: the destructor of a thread-local object of the program may block a leaving thread, and a leaving
// thread may itself end the process.
void awaitLeavingThreads() noexcept {
    ThreadRecord& self = currentRecord();
    const Deadline giveUp = Deadline::after(kLeaveWithin);
    const std::uint32_t own = self.leaving ? 1 : 0;
    g_leaving.fetch_or(kAwaited, std::memory_order_relaxed);
    for (;;) {
        const std::uint32_t leaving = g_leaving.load(std::memory_order_acquire);
        if ((leaving & ~kAwaited) <= own || giveUp.hasPassed()) break;
        futexWait(g_leaving, leaving, giveUp);
    }
    EndedThread last;
    {
        Dispatcher dispatcher(self);
        last = std::exchange(g_lastEnded, {});
    }
    last.join();
}

// The first static object of the library, so its destructor runs after those that stop threads. It runs at the exit of
// the process, where sanitizers look for threads that are not joined, and at the unload, before the code is unmapped.
struct JoinAtExit {
    ~JoinAtExit() { awaitLeavingThreads(); }
};
[[gnu::init_priority(101)]] constinit JoinAtExit g_joinAtExit;

}  // namespace

void runPendingControl(ThreadRecord& self) noexcept {
    self.controlPending = false;
    if (self.thread != nullptr) complyWithControl(*self.thread);
}

void finishThread(ThreadObject& thread, ThreadRecord& self) noexcept {
    EndedThread before;
    bool closed = false, awaited = false;
    {
        Dispatcher dispatcher(self);
        detachThread(dispatcher, self);
        dispatcher.signal(thread, true);
        // An open handle may be closed after this block, and the object is freed with it.
        closed = thread.closed;
        if (closed) before = std::exchange(g_lastEnded, {true, pthread_self()});
        if (std::exchange(self.leaving, false)) {
            awaited = (g_leaving.fetch_sub(1, std::memory_order_release) & kAwaited) != 0;
        }
    }
    if (awaited) futexWake(&g_leaving, kAllSleepers);
    if (!closed) return;
    before.join();
    delete &thread;
}

void adoptThread(ThreadObject& thread, std::uint32_t systemId) noexcept {
    thread.forks = g_forks;
    thread.systemId.store(systemId, std::memory_order_relaxed);
    thread.control.store(0, std::memory_order_relaxed);
}

void closeThread(WaitObject& closed) noexcept {
    auto& thread = static_cast<ThreadObject&>(closed);
    {
        Dispatcher dispatcher(currentRecord());
        if (!hasEnded(thread)) {
            thread.closed = true;
            return;
        }
    }
    // The C library has forgotten the threads of the parent at the fork.
    if (thread.forks == g_forks && !thread.joining.load(std::memory_order_acquire)) {
        pthread_join(thread.native.load(std::memory_order_relaxed), nullptr);
    }
    delete &thread;
}

// The creation of a thread does not use the loader.
void prepareForThreads() noexcept {}

bool createThread(ThreadEntry entry, void* argument, WaitHandle& handle, bool suspended) noexcept {
    handle = nullptr;
    if (!installControlSignal()) return false;
    auto* const thread = new (std::nothrow) ThreadObject(entry, argument);
    if (thread == nullptr) return false;
    thread->control.store(suspended ? 1 : 0, std::memory_order_relaxed);
    thread->inheritsSignal = inheritsControlSignal();
    thread->inheritsScheduling = inheritsScheduling();
    handle = thread;
    pthread_t native{};
    if (errorCall("createThread", [&] { return pthread_create(&native, nullptr, &runThread, thread); }) == 0) {
        // A thread that is not suspended may have freed the object.
        if (suspended) thread->native.store(native, std::memory_order_release);
        return true;
    }
    handle = nullptr;
    delete thread;
    return false;
}

bool suspendThread(WaitHandle handle) noexcept {
    ThreadObject* const thread = asThread(handle);
    if (thread == nullptr) return false;
    ThreadRecord& self = currentRecord();
    {
        Dispatcher dispatcher(self);
        const std::uint32_t control = thread->control.load(std::memory_order_relaxed);
        if (hasEnded(*thread) || control >= kMostSuspensions) return false;
        thread->control.store(control + 1, std::memory_order_release);
    }
    if (self.thread == thread) {
        complyWithControl(*thread);
        return true;
    }
    // The wait also ends if another thread resumes or ends the thread.
    return interruptUntil(*thread, thread->hasStopped, [&] {
        return thread->hasStopped.load(std::memory_order_acquire) != 0 || hasEnded(*thread) ||
               thread->control.load(std::memory_order_acquire) == 0;
    });
}

bool resumeThread(WaitHandle handle) noexcept {
    ThreadObject* const thread = asThread(handle);
    if (thread == nullptr) return false;
    Dispatcher dispatcher(currentRecord());
    if ((thread->control.load(std::memory_order_relaxed) & ~ThreadObject::kTerminating) == 0) return false;
    thread->control.fetch_sub(1);
    // A thread that has not stopped yet looks at `control` before it sleeps. Most new threads are resumed before that.
    if (thread->hasStopped.load() != 0) futexWake(&thread->control, 1);
    return true;
}

bool terminateThread(WaitHandle handle, std::uint32_t exitCode) noexcept {
    ThreadObject* const thread = asThread(handle);
    if (thread == nullptr) return false;
    ThreadRecord& self = currentRecord();
    {
        Dispatcher dispatcher(self);
        if (hasEnded(*thread)) return true;
        if ((thread->control.load(std::memory_order_relaxed) & ThreadObject::kTerminating) == 0) {
            thread->terminationCode = exitCode;
            thread->control.fetch_or(ThreadObject::kTerminating, std::memory_order_release);
        }
    }
    if (self.thread == thread) terminateHere(*thread);
    futexWake(&thread->control, 1);
    return interruptUntil(*thread, thread->word, [&] { return hasEnded(*thread); });
}

// Joins the thread, so the kernel wakes the calling thread as the last step of the other one. A wake-up by the other
// thread itself, which then has to run once more, costs a further switch: a start and a wait on one processor take 11.5
// instead of 10.3 us (bench/threads).
bool endsSoon(WaitHandle handle) noexcept {
    ThreadObject* const thread = asThread(handle);
    // ThreadSanitizer does not know the call.
    if (thread == nullptr || kSanitizerDefersSignals || thread->forks != g_forks) return false;
    const pthread_t native = thread->native.load(std::memory_order_acquire);
    if (native == pthread_t{}) return false;
    // The C library knows one joining thread, and does not forget it when that thread is terminated.
    const Region region(currentRecord());
    if (thread->joining.exchange(true, std::memory_order_acquire)) return false;
    int cancelState = 0;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancelState);
    const timespec until = timeOf(Deadline::after(kEndsSoonWithin));
    const bool joined = pthread_clockjoin_np(native, nullptr, CLOCK_MONOTONIC, &until) == 0;
    pthread_setcancelstate(cancelState, nullptr);
    if (!joined) thread->joining.store(false, std::memory_order_release);
    return joined;
}

void leaveThread() noexcept {
    ThreadRecord& self = currentRecord();
    if (self.finishing == nullptr || self.leaving) return;
    const Region region(self);
    self.leaving = true;
    g_leaving.fetch_add(1, std::memory_order_relaxed);
}

bool otherThreadsAreGone() noexcept {
    return false;
}

bool setThreadPriority(WaitHandle handle, ThreadPriority priority) noexcept {
    ThreadObject* const thread = asThread(handle);
    if (thread == nullptr || hasEnded(*thread)) return false;
    // Time sharing has only niceness and the idle class. The steps separate the priorities clearly.
    constexpr std::array<std::pair<ThreadPriority, int>, 7> kNiceness{{{ThreadPriority::idle, 19},
                                                                       {ThreadPriority::lowest, 10},
                                                                       {ThreadPriority::belowNormal, 5},
                                                                       {ThreadPriority::normal, 0},
                                                                       {ThreadPriority::aboveNormal, -5},
                                                                       {ThreadPriority::highest, -10},
                                                                       {ThreadPriority::timeCritical, -20}}};
    const auto* const entry = std::find_if(kNiceness.begin(), kNiceness.end(),
                                           [=](const auto& candidate) { return candidate.first == priority; });
    if (entry == kNiceness.end()) return false;
    const std::uint32_t id = awaitSystemId(*thread);
    const sched_param parameters{};
    const int policy = priority == ThreadPriority::idle ? SCHED_IDLE : SCHED_OTHER;
    return systemCall("setThreadPriority",
                      [&] { return sched_setscheduler(static_cast<pid_t>(id), policy, &parameters); }) == 0 &&
           systemCall("setThreadPriority", [&] { return setpriority(PRIO_PROCESS, id, entry->second); }) == 0;
}

std::optional<std::uint32_t> threadExitCode(WaitHandle handle) noexcept {
    const ThreadObject* const thread = asThread(handle);
    if (thread == nullptr) return std::nullopt;
    return hasEnded(*thread) ? thread->exitCode.load(std::memory_order_relaxed) : kStillActive;
}

void setThreadName(const char* name) noexcept {
    std::array<char, 16> text{};  // the limit of the kernel, with the NUL
    std::size_t length = 0;
    while (length < text.size() && name[length] != '\0')
        ++length;
    // A character of UTF-8 is not cut.
    if (length == text.size()) --length;
    while (length > 0 && (static_cast<unsigned char>(name[length]) & 0xC0) == 0x80)
        --length;
    std::copy_n(name, length, text.data());
    pthread_setname_np(pthread_self(), text.data());
}

void yieldThread() noexcept {
    sched_yield();
}

void sleepThread(std::uint32_t milliseconds) noexcept {
    const Deadline end = Deadline::afterNumber(milliseconds);
    FutexWord neverWoken{0};
    do {
        futexWait(neverWoken, 0, end);
    } while (!end.hasPassed());
}

}  // namespace KestSupport::platform
