#include "os/service/service_run.h"

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>

#include "os/service/describe_exception.h"
#include "os/service/service_host.h"
#include "platform/thread.h"
#include "text/log_record.h"

namespace KestSupport::internal {
namespace {

using platform::OwnedHandle;

constexpr std::uint32_t kReportInterval = 1000;  // milliseconds

using Work = std::function<std::uint32_t()>;

std::uint32_t runWork(void* argument) {
    const std::unique_ptr<Work> work(static_cast<Work*>(argument));
    return (*work)();
}

OwnedHandle launch(Work work) {
    auto argument = std::make_unique<Work>(std::move(work));
    platform::WaitHandle handle = nullptr;
    if (platform::createThread(runWork, argument.get(), handle)) static_cast<void>(argument.release());
    return OwnedHandle(handle);
}

// What the threads of one life share. The service may be asked to stop while it is still starting: from then on the
// wait thread alone speaks for it, so that nothing follows the final report, after which the service may be destroyed.
class ServiceRun {
  public:
    explicit ServiceRun(KestService& service) : m_service(service) {}

    KestService& service() { return m_service; }

    /// The start thread, or null when there is none. The wait thread does not act before this call.
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

    /// Reports that the start is under way, unless the service has been asked to stop. False once the life is over.
    bool reportStarting() {
        if (phase() == Phase::starting) ServiceHost::logReport(m_service, KestService::START_PENDING);
        const std::lock_guard guard(m_lock);
        if (m_phase == Phase::starting) send(KestService::START_PENDING, 0, kServiceWaitHint);
        return m_phase != Phase::over;
    }

    void becomeRunning() {
        if (phase() != Phase::starting) return;
        logRecord(9, "service_main: service has started, signaling SCM");
        ServiceHost::logReport(m_service, KestService::RUNNING);
        const std::lock_guard guard(m_lock);
        if (m_phase != Phase::starting) return;
        ServiceHost::state(m_service) = KestService::RUNNING;
        send(KestService::RUNNING, 0, 0);
    }

    /// False when the service is being stopped already, which then ends its life.
    bool giveUpStarting() {
        const std::lock_guard guard(m_lock);
        if (m_phase != Phase::starting) return false;
        m_phase = Phase::over;
        ServiceHost::state(m_service) = KestService::STOPPED;
        return true;
    }

    /// False when there is nothing to stop, since the start failed.
    bool beginStopping() {
        const std::lock_guard guard(m_lock);
        if (m_phase == Phase::over || ServiceHost::state(m_service) == KestService::STOPPED) return false;
        m_phase = Phase::stopping;
        ServiceHost::takeStop(m_service);
        return true;
    }

    /// Reports once a second that the service is stopping until the thread has ended.
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

    /// For a thread that alone speaks for the service.
    void report(KestService::tState state, std::uint32_t exitCode, std::uint32_t waitHint) {
        ServiceHost::report(m_service, state, exitCode, waitHint);
    }

    /// What the service ends with when its start fails. The start thread sets it.
    void setExitCode(std::uint32_t exitCode) { m_exitCode = exitCode; }
    std::uint32_t exitCode() const { return m_exitCode; }

  private:
    enum class Phase {
        starting,
        stopping,
        over
    };  // a service that runs has the phase starting: it may still be stopped

    Phase phase() {
        const std::lock_guard guard(m_lock);
        return m_phase;
    }

    void send(KestService::tState state, std::uint32_t exitCode, std::uint32_t waitHint) {
        ServiceHost::send(m_service, state, exitCode, waitHint);
    }

    KestService& m_service;
    std::atomic<std::uint32_t> m_exitCode{0};
    std::mutex m_lock;  // guards what follows; held while a report is sent, and taken before the lock of reports
    std::condition_variable m_launch;
    bool m_launched = false;
    OwnedHandle m_startThread;
    Phase m_phase = Phase::starting;
};

std::uint32_t serviceStartThread(ServiceRun& run, const std::string& arguments) {
    logRecord(9, "ServiceStartThread: calling startIt");
    bool started = false;
    try {
        started = ServiceHost::startIt(run.service(), arguments);
    } catch (...) {
        const std::string failure = "startIt threw " + describeException();
        logRecord(1, "ServiceStartThread: ", failure);
        ServiceHost::keepFailure(run.service(), failure);
        run.setExitCode(platform::errorExceptionInService);
    }
    logRecord(9, "ServiceStartThread: startIt returned with status=", started ? 1 : 0);
    return started ? 1 : 0;
}

std::uint32_t serviceStopThread(ServiceRun& run) {
    logRecord(9, "ServiceStopThread: calling stopIt");
    bool stopped = false;
    try {
        stopped = ServiceHost::stopIt(run.service());
    } catch (...) {
        logRecord(1, "ServiceStopThread: stopIt threw ", describeException());
    }
    logRecord(9, "ServiceStopThread: stopIt returned with status=", stopped ? 1 : 0);
    return stopped ? 1 : 0;
}

std::uint32_t waitForServiceThread(const std::shared_ptr<ServiceRun>& run) {
    logRecord(9, "WaitForServiceThread: waiting for service to exit");
    ServiceHost::stopEvent(run->service()).wait(-1);
    logRecord(9, "WaitForServiceThread: enter: service completed");
    const platform::WaitHandle startThread = run->awaitStartThread();
    if (!run->beginStopping()) return 0;

    logRecord(9, "WaitForServiceThread: creating ServiceStopThread");
    const OwnedHandle stopThread = launch([run] { return serviceStopThread(*run); });
    if (stopThread != nullptr) {
        logRecord(9, "WaitForServiceThread: waiting for ServiceStopThread to exit");
        ServiceHost::state(run->service()) = KestService::STOP_PENDING;
        run->reportStoppingUntilEndOf(stopThread.get());
        logRecord(9, "WaitForServiceThread: ServiceStopThread has exited");
    }
    // The service may be destroyed after the final report, so startIt has returned before it.
    if (platform::waitForOne(startThread, 0) == platform::kWaitTimeout) run->reportStoppingUntilEndOf(startThread);
    logRecord(9, "WaitForServiceThread: stopping service");
    run->becomeStopped();
    return 0;
}

// Sets the stop event, also when a dependent of it throws: the wait thread must not outlive the service.
void wakeWaitThread(KestEvent& stopEvent) {
    try {
        stopEvent.set();
    } catch (...) {
        platform::setEvent(*static_cast<platform::WaitHandle*>(stopEvent.getHandle()));
    }
}

// The wait thread has left the stop event before the final report, since the service may be destroyed after it. The
// event is set again for a wait thread whose signal a waiter of the derived class took.
void endFailedStart(ServiceRun& run, platform::WaitHandle waitThread) {
    do {
        wakeWaitThread(ServiceHost::stopEvent(run.service()));
    } while (platform::waitForOne(waitThread, kReportInterval) == platform::kWaitTimeout);
    run.report(KestService::STOPPED, run.exitCode(), 0);
}

// Whether the start thread's result says that the service has started.
bool hasStarted(platform::WaitHandle startThread) {
    std::uint32_t exitCode = 0;
    if (!platform::threadExitCode(startThread, exitCode)) {
        logRecord(9,
                  "service_main: Unable to get ServiceStartThread exit code, signaling WaitForServiceThread to exit");
        return false;
    }
    if (exitCode == 0) {
        logRecord(9, "service_main: Service start failed, signaling WaitForServiceThread to exit");
        return false;
    }
    return true;
}

}  // namespace

void runService(KestService& service, const std::string& arguments) {
    const auto run = std::make_shared<ServiceRun>(service);
    logRecord(9, "service_main: creating WaitForServiceThread");
    const OwnedHandle waitThread = launch([run] { return waitForServiceThread(run); });
    if (waitThread == nullptr) {
        logRecord(9, "service_main: WaitForServiceThread creation failed");
        run->report(KestService::STOPPED, 0, 0);
        return;
    }

    logRecord(9, "service_main: creating ServiceStartThread");
    OwnedHandle launched = launch([run, arguments] { return serviceStartThread(*run, arguments); });
    const platform::WaitHandle startThread = launched.get();
    if (startThread == nullptr) {
        logRecord(9, "service_main: ServiceStartThread creation failed");
        logRecord(9, "service_main: signaling WaitForServiceThread to exit");
        run->giveUpStarting();
        run->setStartThread(nullptr);
        endFailedStart(*run, waitThread.get());
        return;
    }

    run->setStartThread(std::move(launched));
    logRecord(9, "service_main: waiting for ServiceStartThread to exit");
    do {
        if (!run->reportStarting()) return;
    } while (platform::waitForOne(startThread, kReportInterval) == platform::kWaitTimeout);
    logRecord(9, "service_main: ServiceStartThread exited");
    if (hasStarted(startThread)) {
        run->becomeRunning();
    } else if (run->giveUpStarting()) {
        endFailedStart(*run, waitThread.get());
    }
}

}  // namespace KestSupport::internal
