// A thread object, its native thread and its run.
//
//   phase      m_handle  m_running  m_runThreadId  getExitCode  left by
//   new        null      false      0              -1           start: running, or new again when there is no thread
//   running    set       true       the thread     -1           the end of the run: ended; kill: killed
//   suspended  set       true       the thread     -1           start: running; kill: killed
//   ended      set       false      0              the result   kill: killed; start has no effect
//   killed     null      false      0              -1           start: running, with a new native thread
//
// m_runThreadId is set by the new thread, so it is 0 for a moment after start. A thread marked for death has no ended
// phase: it deletes the object at the end of its run. The native thread still runs for a moment in the ended phase.
#include "support/threads.h"

#include <algorithm>
#include <array>
#include <exception>
#include <memory>
#include <new>
#include <optional>
#include <utility>

#include "platform/thread.h"
#include "platform/thread_bias.h"
#include "platform/wait.h"
#include "sync/wait_set.h"
#include "threads/timer_deferral.h"
#include "threads/timer_manager.h"

namespace KestSupport {
namespace {

constexpr int kNotRunning = 128;
constexpr const char* kLibraryName = "class ";  // the beginning of a name that the program has not given

// The system gives the only thread of a forked child another id, but it is still inside the run.
int runningThread() noexcept {
    return static_cast<int>(platform::lifelongThreadKey());
}

// Called in a catch (...). pthread_exit unwinds the stack with an object that is no C++ exception; a handler that does
// not throw it again ends the process.
bool isThreadExit() noexcept {
    return std::current_exception() == nullptr;
}

}  // namespace

/// The cell that getHandle returns: the native thread's handle comes first.
struct KestThread::NativeThread {
    NativeThread() noexcept = default;
    NativeThread(const NativeThread&) = delete;
    NativeThread& operator=(const NativeThread&) = delete;
    ~NativeThread() { platform::closeHandle(handle); }

    platform::WaitHandle handle = nullptr;
    platform::OwnedHandle runEnded{platform::createEvent(true, false)};
    std::array<char, 64> name{};  // for the system, with a NUL; empty: the thread has none
    NativeThread* nextRetired = nullptr;
};

/// Keeps the cell of a thread from being freed while a call uses it. The use of a call whose thread is killed never
/// ends; the cell is then freed with the thread object.
class KestThread::NativeUse {
  public:
    // The use is counted before m_handle is read, and kill clears m_handle before it reads the count.
    explicit NativeUse(const KestThread& thread) noexcept
        : m_uses(thread.m_uses), m_native((++m_uses, thread.m_handle.load())) {}
    NativeUse(const NativeUse&) = delete;
    NativeUse& operator=(const NativeUse&) = delete;
    ~NativeUse() { --m_uses; }

    explicit operator bool() const noexcept { return m_native != nullptr; }
    platform::WaitHandle handle() const noexcept { return m_native == nullptr ? nullptr : m_native->handle; }
    platform::WaitHandle runEnded() const noexcept { return m_native->runEnded.get(); }

  private:
    std::atomic<std::uint32_t>& m_uses;
    const NativeThread* const m_native;
};

/// One run, on the stack of its thread. The destructor ends the run, also when pthread_exit unwinds the stack.
class KestThread::Run {
  public:
    explicit Run(KestThread& thread) noexcept : m_thread(&thread) {
        thread.m_run = this;
        thread.m_runThreadId = runningThread();
    }
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;
    ~Run();

    int perform();
    /// Called when the thread object is destroyed on its own thread.
    void forgetThread() noexcept { m_thread = nullptr; }

  private:
    void notifyDone();

    KestThread* m_thread;
    int m_result = 0;
};

KestWorkInformation::~KestWorkInformation() = default;
KestThread::ThreadDone::~ThreadDone() = default;
KestThread::KestRunnable::~KestRunnable() = default;
int KestThread::KestRunnable::run(KestWorkInformation&) {
    return 0;
}
int KestThread::KestRunnable::run() {
    return 0;
}

KestThread::KestThread() : KestThread(KestSmartPointer<KestRunnable>()) {}

KestThread::KestThread(const std::string& name) : KestThread(KestSmartPointer<KestRunnable>(), name) {}

// During the construction of this base, the object's class is KestThread in derived classes, too.
KestThread::KestThread(KestSmartPointer<KestRunnable> runnable) : m_runnable(std::move(runnable)) {
    m_name = "class " + KestThread::getClassName();
}

KestThread::KestThread(KestSmartPointer<KestRunnable> runnable, const std::string& name)
    : m_name(name), m_runnable(std::move(runnable)) {}

KestThread::~KestThread() {
    if (isCurrentThread()) {
        m_run->forgetThread();
    } else if (isAlive() && !m_markForDeath) {
        if (m_markForKill) kill();
        waitForThreadExit();
    }
    cleanup();
    m_uses = 0;  // the remaining uses are those of killed threads
    freeRetired();
}

void KestThread::start() {
    if (const NativeThread* const native = m_handle.load(); native != nullptr) {
        platform::resumeThread(native->handle);
        return;
    }
    std::unique_ptr<NativeThread> native(new (std::nothrow) NativeThread);
    if (native == nullptr || native->runEnded == nullptr) return;
    // The run does not read m_name, which the program may change.
    if (!m_name.starts_with(kLibraryName)) m_name.copy(native->name.data(), native->name.size() - 1);
    // The thread is made suspended, so that other threads see a complete handle or none.
    if (!platform::createThread(&KestThread::enter, this, native->handle, true)) return;
    const platform::WaitHandle handle = native->handle;
    m_exitCode = -1;
    m_running = true;
    m_handle = native.release();
    // After this call the thread may end and delete this object.
    platform::resumeThread(handle);
}

void KestThread::stop() {
    if (const NativeThread* const native = m_handle.load(); native != nullptr) {
        platform::suspendThread(native->handle);
    }
}

void KestThread::setWorkInfo(KestSmartPointer<KestWorkInformation> info) {
    m_workInfo = info;
}

int KestThread::run(KestWorkInformation&) {
    return 0;
}
int KestThread::run() {
    return 0;
}

std::uint32_t KestThread::enter(void* object) {
    KestThread& thread = *static_cast<KestThread*>(object);
    if (const char* const name = thread.m_handle.load()->name.data(); *name != '\0') platform::setThreadName(name);
    Run run(thread);
    return static_cast<std::uint32_t>(run.perform());
}

int KestThread::Run::perform() {
    try {
        m_result = m_thread->callWork();
    } catch (...) {
        if (isThreadExit()) {
            notifyDone();
            throw;
        }
    }
    notifyDone();
    return m_result;
}

int KestThread::callWork() {
    KestWorkInformation* const info = m_workInfo.get();
    if (!m_runnable.isNull()) return info != nullptr ? m_runnable->run(*info) : m_runnable->run();
    return info != nullptr ? run(*info) : run();
}

void KestThread::Run::notifyDone() {
    if (m_thread == nullptr) return;
    // No caller on this thread could handle what a dependent throws.
    try {
        m_thread->notify(ThreadDone(m_result));
    } catch (...) {
        if (isThreadExit()) throw;
    }
}

KestThread::Run::~Run() {
    // Called before another thread can learn of the end and exit the process.
    platform::leaveThread();
    if (m_thread == nullptr) return;
    if (m_thread->m_markForDeath) {
        delete m_thread;
        return;
    }
    m_thread->m_exitCode = m_result;
    m_thread->m_running = false;
    m_thread->m_run = nullptr;
    m_thread->m_runThreadId = 0;
    // This is the last step: a thread that waits for it may destroy the object.
    platform::setEvent(m_thread->m_handle.load()->runEnded.get());
}

bool KestThread::isCurrentThread() const noexcept {
    return m_runThreadId == runningThread();
}

void KestThread::kill() {
    const NativeThread* const native = m_handle.load();
    if (native == nullptr) return;
    // A thread that kills itself does not return from here, and another thread may get its key later.
    if (isCurrentThread()) m_runThreadId = 0;
    if (!platform::terminateThread(native->handle, 0)) return;
    cleanup();
    // The killed thread may have been firing timers; the call makes another thread continue. They do not fire on the
    // calling thread, which may hold a lock. Without memory, the next start or stop of a timer has the same effect.
    const KestTimerDeferral deferral;
    try {
        KestTimerManager::reschedule();
    } catch (...) {
        return;
    }
}

void KestThread::cleanup() noexcept {
    NativeThread* const native = m_handle.exchange(nullptr);
    m_running = false;
    m_runThreadId = 0;
    if (native == nullptr) return;
    native->nextRetired = m_retired;
    m_retired = native;
    freeRetired();
}

void KestThread::freeRetired() noexcept {
    if (m_uses != 0) return;
    while (m_retired != nullptr)
        delete std::exchange(m_retired, m_retired->nextRetired);
}

void KestThread::waitForThreadExit() {
    if (isCurrentThread()) return;
    const NativeUse use(*this);
    if (!use) return;
    const std::array ends{use.runEnded(), use.handle()};
    // The end of a run is soon followed by that of its thread, but a destructor of a thread-local object may wait for
    // what this thread does next.
    if (platform::waitForOne(ends[0], 0) == platform::kWaitObject0 || platform::endsSoon(ends[1])) return;
    // A killed thread ends without the end of its run.
    platform::waitForMany(ends, false, platform::kInfinite);
}

int KestThread::wait(int timeout) {
    const NativeUse use(*this);
    if (!use || !m_running) return kNotRunning;
    // A wait without limit that returns another value than 0 failed; a repetition would fail, too.
    return static_cast<int>(platform::waitForOne(use.handle(), static_cast<std::uint32_t>(timeout)));
}

bool KestThread::setPriority(t_Priority priority) {
    using platform::ThreadPriority;
    constexpr std::array<ThreadPriority, 7> kPriorities{
        ThreadPriority::aboveNormal, ThreadPriority::belowNormal, ThreadPriority::highest,     ThreadPriority::idle,
        ThreadPriority::lowest,      ThreadPriority::normal,      ThreadPriority::timeCritical};
    const NativeUse use(*this);
    if (!use) return false;
    const auto index = static_cast<std::size_t>(priority);
    return platform::setThreadPriority(use.handle(),
                                       index < kPriorities.size() ? kPriorities[index] : ThreadPriority::normal);
}

int KestThread::getExitCode() const noexcept {
    return isAlive() ? m_exitCode.load() : -1;
}

int KestThread::getCurrentThreadId() noexcept {
    return static_cast<int>(platform::currentThreadId());
}

int KestThread::wait(std::vector<KestThread*>& threads, bool waitAll, int timeout) {
    return waitForSet(threads, waitAll, timeout);
}

int KestThread::wait(int count, KestThread* threads, bool waitAll, int timeout) {
    std::array<KestThread*, platform::kMaximumWaitObjects> addresses{};
    const auto used = static_cast<std::size_t>(std::max(count, 0));
    if (used > addresses.size()) return internal::kSetFailed;
    for (std::size_t i = 0; i < used; ++i)
        addresses[i] = &threads[i];
    return waitForSet({addresses.data(), used}, waitAll, timeout);
}

int KestThread::waitForSet(std::span<KestThread* const> threads, bool waitAll, int timeout) {
    std::array<std::optional<NativeUse>, platform::kMaximumWaitObjects> uses;
    const auto handleAt = [&](std::size_t i) { return uses[i].emplace(*threads[i]).handle(); };
    return internal::waitForSet(threads.size(), handleAt, waitAll, timeout);
}

}  // namespace KestSupport
