// Runs a service under the manager. While startIt runs, the manager's thread reports; once the service is asked to
// stop, the wait thread reports. So nothing follows the final report, after which the service may be destroyed.
//
//   phase      begins when                                 who reports        next phase
//   starting   the run begins; lasts while it runs         manager's thread   stopping, or over if the start failed
//   stopping   the wait thread takes a request to stop     wait thread        over, when startIt and stopIt returned
//   over       see above                                   the same thread    none; it reports STOPPED once
#include "os/service/service_run.h"

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <new>
#include <optional>

#include "os/service/describe_exception.h"
#include "os/service/service_host.h"
#include "platform/thread.h"
#include "text/log/internal_log.h"

namespace KestSupport::internal {
namespace {

using platform::OwnedHandle;

constexpr std::uint32_t kReportInterval = 1000;  // milliseconds

// The state that the threads of one run share. Its lock need not survive its owner: only a KestThread can be killed,
// and no thread of a run is one.
class ServiceRun {
  public:
    ServiceRun(KestService& service, const std::string& arguments) : m_service(service), m_arguments(arguments) {}

    KestService& service() { return m_service; }
    const std::string& arguments() const { return m_arguments; }

    /// Sets the start thread, null when there is none. The wait thread does not act before this call.
    void setStartThread(OwnedHandle thread) {
        const std::lock_guard guard(m_lock);
        m_startThread = std::move(thread);
        m_launched = true;
        m_launch.notify_all();
    }

    platform::WaitHandle awaitStartThread() {
        std::unique_lock guard(m_lock);
        m_launch.wait(guard, [&] { return m_launched; });
        return m_startThread.get();
    }

    /// Reports START_PENDING in the phase starting. Returns false when the run is over.
    bool reportStarting() {
        if (phase() == Phase::starting) ServiceHost::logReport(m_service, KestService::START_PENDING);
        const std::lock_guard guard(m_lock);
        if (m_phase == Phase::starting) send(KestService::START_PENDING, 0, kServiceWaitHint);
        return m_phase != Phase::over;
    }

    void becomeRunning() {
        if (phase() != Phase::starting) return;
        traceStep("service_main: service has started, signaling SCM");
        ServiceHost::logReport(m_service, KestService::RUNNING);
        const std::lock_guard guard(m_lock);
        if (m_phase != Phase::starting) return;
        ServiceHost::state(m_service) = KestService::RUNNING;
        send(KestService::RUNNING, 0, 0);
    }

    /// Ends the run after a failed start. Returns false when the wait thread already stops the service.
    bool giveUpStarting() {
        const std::lock_guard guard(m_lock);
        if (m_phase != Phase::starting) return false;
        m_phase = Phase::over;
        ServiceHost::state(m_service) = KestService::STOPPED;
        return true;
    }

    /// Enters the phase stopping. Returns false after a failed start, because then nothing is to be stopped.
    bool beginStopping() {
        const std::lock_guard guard(m_lock);
        if (m_phase == Phase::over || ServiceHost::state(m_service) == KestService::STOPPED) return false;
        m_phase = Phase::stopping;
        ServiceHost::takeStop(m_service);
        return true;
    }

    /// Reports STOP_PENDING once a second until the thread has ended.
    void reportStoppingUntilEndOf(platform::WaitHandle thread) {
        do {
            report(KestService::STOP_PENDING, 0, kServiceWaitHint);
        } while (platform::waitForOne(thread, kReportInterval) == platform::kWaitTimeout);
    }

    void becomeStopped() {
        ServiceHost::logReport(m_service, KestService::STOPPED);
        const std::lock_guard guard(m_lock);
        m_phase = Phase::over;
        ServiceHost::state(m_service) = KestService::STOPPED;
        send(KestService::STOPPED, 0, 0);
    }

    /// Reports without the lock, for the only thread that reports in this phase.
    void report(KestService::tState state, std::uint32_t exitCode, std::uint32_t waitHint) {
        ServiceHost::report(m_service, state, exitCode, waitHint);
    }

    /// The exit code after a failed start. The start thread sets it.
    void setExitCode(std::uint32_t exitCode) { m_exitCode = exitCode; }
    std::uint32_t exitCode() const { return m_exitCode; }

  private:
    enum class Phase { starting, stopping, over };  // a running service has the phase starting

    Phase phase() {
        const std::lock_guard guard(m_lock);
        return m_phase;
    }

    void send(KestService::tState state, std::uint32_t exitCode, std::uint32_t waitHint) {
        ServiceHost::send(m_service, state, exitCode, waitHint);
    }

    KestService& m_service;
    const std::string m_arguments;
    std::atomic<std::uint32_t> m_exitCode{0};
    std::mutex m_lock;  // guards what follows; held while a report is sent; taken before the lock of reports
    std::condition_variable m_launch;
    bool m_launched = false;
    OwnedHandle m_startThread;
    Phase m_phase = Phase::starting;
};

// The work of one thread. It throws nothing, because no exception may leave a thread.
struct Work {
    std::shared_ptr<ServiceRun> run;
    std::uint32_t (*function)(const std::shared_ptr<ServiceRun>& run);
};

std::uint32_t runWork(void* argument) {
    const std::unique_ptr<Work> work(static_cast<Work*>(argument));
    return work->function(work->run);
}

// Returns null when there is no thread, or no memory for it.
OwnedHandle launch(const std::shared_ptr<ServiceRun>& run, decltype(Work::function) function) {
    std::unique_ptr<Work> work(new (std::nothrow) Work{run, function});
    platform::WaitHandle handle = nullptr;
    if (work != nullptr && platform::createThread(runWork, work.get(), handle)) static_cast<void>(work.release());
    return OwnedHandle(handle);
}

// Called in a handler of an exception: logs what the function threw, and returns it. Without memory the texts are
// missing.
std::string noteException(const char* thread, const char* function) noexcept try {
    std::string failure = std::string(function) + " threw " + describeException();
    logRecord(LogLevel::failure, thread, ": ", failure);
    return failure;
} catch (const std::bad_alloc&) {
    return {};
}

std::uint32_t serviceStartThread(const std::shared_ptr<ServiceRun>& run) {
    traceStep("ServiceStartThread: calling startIt");
    bool started = false;
    try {
        started = ServiceHost::startIt(run->service(), run->arguments());
    } catch (...) {
        run->setExitCode(platform::errorExceptionInService);
        ServiceHost::keepFailure(run->service(), noteException("ServiceStartThread", "startIt"));
    }
    traceStep("ServiceStartThread: startIt returned with status=", started ? 1 : 0);
    return started ? 1 : 0;
}

std::uint32_t serviceStopThread(const std::shared_ptr<ServiceRun>& run) {
    traceStep("ServiceStopThread: calling stopIt");
    bool stopped = false;
    try {
        stopped = ServiceHost::stopIt(run->service());
    } catch (...) {
        noteException("ServiceStopThread", "stopIt");
    }
    traceStep("ServiceStopThread: stopIt returned with status=", stopped ? 1 : 0);
    return stopped ? 1 : 0;
}

std::uint32_t waitForServiceThread(const std::shared_ptr<ServiceRun>& run) {
    traceStep("WaitForServiceThread: waiting for service to exit");
    ServiceHost::stopEvent(run->service()).wait(-1);
    traceStep("WaitForServiceThread: enter: service completed");
    const platform::WaitHandle startThread = run->awaitStartThread();
    if (!run->beginStopping()) return 0;

    traceStep("WaitForServiceThread: creating ServiceStopThread");
    const OwnedHandle stopThread = launch(run, serviceStopThread);
    if (stopThread != nullptr) {
        traceStep("WaitForServiceThread: waiting for ServiceStopThread to exit");
        ServiceHost::state(run->service()) = KestService::STOP_PENDING;
        run->reportStoppingUntilEndOf(stopThread.get());
        traceStep("WaitForServiceThread: ServiceStopThread has exited");
    }
    // startIt must return before the final report, after which the service may be destroyed.
    if (platform::waitForOne(startThread, 0) == platform::kWaitTimeout) run->reportStoppingUntilEndOf(startThread);
    traceStep("WaitForServiceThread: stopping service");
    run->becomeStopped();
    return 0;
}

// Sets the stop event, even if a dependent of the event throws: the wait thread must not outlive the service.
void wakeWaitThread(KestEvent& stopEvent) {
    try {
        stopEvent.set();
    } catch (...) {
        platform::setEvent(*static_cast<platform::WaitHandle*>(stopEvent.getHandle()));
    }
}

// The wait thread must leave the stop event before the final report, after which the service may be destroyed. The
// event is set once a second, because a waiter of the derived class may consume the signal.
void endFailedStart(ServiceRun& run, platform::WaitHandle waitThread) {
    do {
        wakeWaitThread(ServiceHost::stopEvent(run.service()));
    } while (platform::waitForOne(waitThread, kReportInterval) == platform::kWaitTimeout);
    run.report(KestService::STOPPED, run.exitCode(), 0);
}

// Returns whether startIt succeeded, from the exit code of its thread.
bool hasStarted(platform::WaitHandle startThread) {
    const std::optional<std::uint32_t> exitCode = platform::threadExitCode(startThread);
    if (!exitCode) {
        traceStep("service_main: Unable to get ServiceStartThread exit code, signaling WaitForServiceThread to exit");
        return false;
    }
    if (*exitCode == 0) {
        traceStep("service_main: Service start failed, signaling WaitForServiceThread to exit");
        return false;
    }
    return true;
}

}  // namespace

void runService(KestService& service, const std::string& arguments) {
    const auto run = std::make_shared<ServiceRun>(service, arguments);
    traceStep("service_main: creating WaitForServiceThread");
    const OwnedHandle waitThread = launch(run, waitForServiceThread);
    if (waitThread == nullptr) {
        traceStep("service_main: WaitForServiceThread creation failed");
        run->report(KestService::STOPPED, 0, 0);
        return;
    }

    traceStep("service_main: creating ServiceStartThread");
    OwnedHandle launched = launch(run, serviceStartThread);
    const platform::WaitHandle startThread = launched.get();
    if (startThread == nullptr) {
        traceStep("service_main: ServiceStartThread creation failed");
        traceStep("service_main: signaling WaitForServiceThread to exit");
        run->giveUpStarting();
        run->setStartThread(nullptr);
        endFailedStart(*run, waitThread.get());
        return;
    }

    run->setStartThread(std::move(launched));
    traceStep("service_main: waiting for ServiceStartThread to exit");
    do {
        if (!run->reportStarting()) return;
    } while (platform::waitForOne(startThread, kReportInterval) == platform::kWaitTimeout);
    traceStep("service_main: ServiceStartThread exited");
    if (hasStarted(startThread)) {
        run->becomeRunning();
    } else if (run->giveUpStarting()) {
        endFailedStart(*run, waitThread.get());
    }
}

}  // namespace KestSupport::internal
