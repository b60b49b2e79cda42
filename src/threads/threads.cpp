#include "support/threads.h"

#include <array>
#include <memory>
#include <new>

#include "platform/thread.h"
#include "platform/wait.h"
#include "threads/timer_manager.h"

namespace KestSupport {
namespace {

constexpr int kNotRunning = 128;
constexpr int kWaitFailed = -1;
constexpr int kSetTimedOut = -2;

}  // namespace

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

// While this base is being made, the object's class is this one whatever it will be.
KestThread::KestThread(KestSmartPointer<KestRunnable> runnable) : m_runnable(std::move(runnable)) {
    m_name = "class " + KestThread::getClassName();
}

KestThread::KestThread(KestSmartPointer<KestRunnable> runnable, const std::string& name)
    : m_name(name), m_runnable(std::move(runnable)) {}

KestThread::~KestThread() {
    if (!isAlive()) return;
    // A thread that is marked for death destroys itself here, when its run has ended.
    if (!m_markForDeath) {
        if (m_markForKill) {
            kill();
            return;
        }
        waitForThreadExit();
    }
    cleanup();
}

void KestThread::start() {
    if (platform::WaitHandle* const handle = m_handle.load(std::memory_order_acquire); handle != nullptr) {
        platform::resumeThread(*handle);
        return;
    }
    auto* const cell = new (std::nothrow) platform::WaitHandle(nullptr);
    if (cell == nullptr) return;
    // Everything is in place before the thread exists: it may end, and delete this object, before createThread returns.
    m_running = true;
    m_phase = Phase::starting;
    m_handle.store(cell, std::memory_order_release);
    if (platform::createThread(&KestThread::enter, this, *cell)) return;
    m_handle.store(nullptr, std::memory_order_release);
    m_phase = Phase::fresh;
    m_running = false;
    delete cell;
}

void KestThread::stop() {
    if (platform::WaitHandle* const handle = m_handle.load(std::memory_order_acquire); handle != nullptr) {
        platform::suspendThread(*handle);
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
    KestThread& self = *static_cast<KestThread*>(object);
    int result = 0;
    bool deletesItself = false;
    {
        const KestCriticalSection guard(self.m_runLock, true);
        self.m_phase = Phase::entered;
        self.m_phase.notify_all();
        result = self.performRun();
        deletesItself = self.m_markForDeath;
        if (!deletesItself) {
            self.m_exitCode = result;
            self.m_running = false;
        }
    }
    if (deletesItself) delete &self;
    return static_cast<std::uint32_t>(result);
}

int KestThread::performRun() {
    int result = 0;
    try {
        KestWorkInformation* const info = m_workInfo.get();
        if (!m_runnable.isNull()) {
            result = info != nullptr ? m_runnable->run(*info) : m_runnable->run();
        } else {
            result = info != nullptr ? run(*info) : run();
        }
    } catch (...) {
        result = 0;
    }
    notifyDone(result);
    return result;
}

void KestThread::notifyDone(int exitCode) {
    // What a dependent throws has nowhere to go on this thread.
    try {
        notify(ThreadDone(exitCode));
    } catch (...) {
        return;
    }
}

void KestThread::kill() {
    platform::WaitHandle* const handle = m_handle.load(std::memory_order_acquire);
    if (handle == nullptr) return;
    platform::terminateThread(*handle, 0);
    cleanup();
    m_phase = Phase::entered;
    m_phase.notify_all();
    // It may have been firing timers, and nobody else would go on with those until the next timer is started or
    // stopped. They do not fire on this thread, which may hold a lock.
    const KestTimerDeferral deferral;
    KestTimerManager::reschedule();
}

void KestThread::cleanup() noexcept {
    platform::WaitHandle* const handle = m_handle.exchange(nullptr, std::memory_order_acq_rel);
    m_running = false;
    if (handle == nullptr) return;
    platform::closeHandle(*handle);
    delete handle;
}

void KestThread::waitForThreadExit() {
    m_phase.wait(Phase::starting);
    const KestCriticalSection guard(m_runLock, true);
}

int KestThread::wait(int timeout) {
    const platform::WaitHandle* const handle = m_handle.load(std::memory_order_acquire);
    if (handle == nullptr || !m_running) return kNotRunning;
    // Without limit, the only other result is that the wait cannot be done at all; repeating would not help.
    return static_cast<int>(platform::waitForOne(*handle, static_cast<std::uint32_t>(timeout)));
}

bool KestThread::setPriority(t_Priority priority) {
    using platform::ThreadPriority;
    constexpr std::array<ThreadPriority, 7> priorities{
        ThreadPriority::aboveNormal, ThreadPriority::belowNormal, ThreadPriority::highest,     ThreadPriority::idle,
        ThreadPriority::lowest,      ThreadPriority::normal,      ThreadPriority::timeCritical};
    const platform::WaitHandle* const handle = m_handle.load(std::memory_order_acquire);
    if (handle == nullptr) return false;
    const auto index = static_cast<std::size_t>(priority);
    return platform::setThreadPriority(*handle, index < priorities.size() ? priorities[index] : ThreadPriority::normal);
}

int KestThread::getExitCode() const noexcept {
    return isAlive() ? m_exitCode.load() : -1;
}

int KestThread::getCurrentThreadId() noexcept {
    return static_cast<int>(platform::currentThreadId());
}

int KestThread::wait(std::vector<KestThread*>& threads, bool waitAll, int timeout) {
    std::vector<platform::WaitHandle> handles;
    handles.reserve(threads.size());
    for (const KestThread* const thread : threads) {
        const platform::WaitHandle* const handle = thread->m_handle.load(std::memory_order_acquire);
        handles.push_back(handle == nullptr ? nullptr : *handle);
    }
    const std::uint32_t result = platform::waitForMany(handles, waitAll, static_cast<std::uint32_t>(timeout));
    if (result == platform::kWaitFailed) return kWaitFailed;
    if (result == platform::kWaitTimeout) return kSetTimedOut;
    return waitAll ? 0 : static_cast<int>(result);
}

int KestThread::wait(int count, KestThread* threads, bool waitAll, int timeout) {
    std::vector<KestThread*> addresses;
    if (count > 0) addresses.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i)
        addresses.push_back(&threads[i]);
    return wait(addresses, waitAll, timeout);
}

}  // namespace KestSupport
