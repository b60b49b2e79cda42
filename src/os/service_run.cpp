#include "os/service_run.h"

#include <functional>
#include <memory>
#include <mutex>

#include "os/service_host.h"
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

OwnedHandle startThread(Work work) {
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

    /// Reports that the start goes on, unless the service has been asked to stop. Whether the life is not over yet.
    bool reportStarting() {
        const std::lock_guard guard(m_lock);
        if (m_phase == Phase::starting) report(KestService::START_PENDING, kServiceWaitHint);
        return m_phase != Phase::over;
    }

    void becomeRunning() {
        const std::lock_guard guard(m_lock);
        if (m_phase != Phase::starting) return;
        logRecord(9, "service_main: service has started, signaling SCM");
        ServiceHost::state(m_service) = KestService::RUNNING;
        report(KestService::RUNNING, 0);
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
        return true;
    }

    void becomeStopped() {
        const std::lock_guard guard(m_lock);
        m_phase = Phase::over;
        ServiceHost::state(m_service) = KestService::STOPPED;
        report(KestService::STOPPED, 0);
    }

    void report(KestService::tState state, std::uint32_t waitHint) {
        ServiceHost::report(m_service, state, 0, waitHint);
    }

  private:
    enum class Phase {
        starting,
        stopping,
        over
    };  // a service that runs has the phase starting: it may still be stopped

    KestService& m_service;
    std::mutex m_lock;  // guards m_phase; held while a report goes out, and taken before the lock of reports
    Phase m_phase = Phase::starting;
};

std::uint32_t serviceStartThread(ServiceRun& run, const std::string& arguments) {
    logRecord(9, "ServiceStartThread: calling startIt");
    bool started = false;
    try {
        started = ServiceHost::startIt(run.service(), arguments);
    } catch (...) {
        // A start that throws has failed.
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
        // The service stops all the same.
    }
    logRecord(9, "ServiceStopThread: stopIt returned with status=", stopped ? 1 : 0);
    return stopped ? 1 : 0;
}

std::uint32_t waitForServiceThread(const std::shared_ptr<ServiceRun>& run) {
    logRecord(9, "WaitForServiceThread: waiting for service to exit");
    ServiceHost::stopEvent(run->service()).wait(-1);
    logRecord(9, "WaitForServiceThread: enter: service completed");
    if (!run->beginStopping()) return 0;

    logRecord(9, "WaitForServiceThread: creating ServiceStopThread");
    const OwnedHandle stopThread = startThread([run] { return serviceStopThread(*run); });
    if (stopThread != nullptr) {
        logRecord(9, "WaitForServiceThread: waiting for ServiceStopThread to exit");
        ServiceHost::state(run->service()) = KestService::STOP_PENDING;
        do {
            run->report(KestService::STOP_PENDING, kServiceWaitHint);
        } while (platform::waitForOne(stopThread.get(), kReportInterval) == platform::kWaitTimeout);
        logRecord(9, "WaitForServiceThread: ServiceStopThread has exited");
    }
    logRecord(9, "WaitForServiceThread: stopping service");
    run->becomeStopped();
    return 0;
}

// The wait thread has left the stop event before the final report, since the service may be destroyed after it. The
// event is set again for a wait thread whose signal a waiter of the derived class took.
void failStart(ServiceRun& run, platform::WaitHandle waitThread) {
    if (!run.giveUpStarting()) return;
    do {
        ServiceHost::stopEvent(run.service()).set();
    } while (platform::waitForOne(waitThread, kReportInterval) == platform::kWaitTimeout);
    run.report(KestService::STOPPED, 0);
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
    const OwnedHandle waitThread = startThread([run] { return waitForServiceThread(run); });
    if (waitThread == nullptr) {
        logRecord(9, "service_main: WaitForServiceThread creation failed");
        run->report(KestService::STOPPED, 0);
        return;
    }

    logRecord(9, "service_main: creating ServiceStartThread");
    const OwnedHandle start = startThread([run, arguments] { return serviceStartThread(*run, arguments); });
    if (start == nullptr) {
        logRecord(9, "service_main: ServiceStartThread creation failed");
        logRecord(9, "service_main: signaling WaitForServiceThread to exit");
        failStart(*run, waitThread.get());
        return;
    }

    logRecord(9, "service_main: waiting for ServiceStartThread to exit");
    do {
        if (!run->reportStarting()) return;
    } while (platform::waitForOne(start.get(), kReportInterval) == platform::kWaitTimeout);
    logRecord(9, "service_main: ServiceStartThread exited");
    if (hasStarted(start.get())) {
        run->becomeRunning();
    } else {
        failStart(*run, waitThread.get());
    }
}

}  // namespace KestSupport::internal
