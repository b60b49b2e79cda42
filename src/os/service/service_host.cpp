#include "os/service/service_host.h"

#include <mutex>

#include "os/service/describe_exception.h"
#include "os/service/service_run.h"
#include "platform/console.h"
#include "platform/uninterrupted.h"
#include "text/log/internal_log.h"

namespace KestSupport::internal {
namespace {

// Serialises the reports, so that they are sent in the order of their check points. Process-wide, because the service
// may be destroyed as soon as the report STOPPED has been sent.
constinit platform::UninterruptedMutex g_reportLock;
std::uint32_t g_checkPoint = 1;  // guarded by g_reportLock

constinit std::atomic<KestService*> g_current{nullptr};

// Calls the request. Logs an exception and throws it to the caller.
template <typename Request>
void carryOut(const char* name, const Request& request) {
    try {
        request();
    } catch (...) {
        logRecord(LogLevel::failure, "KestService: a request to ", name, " failed: ", describeException());
        throw;
    }
}

// The same for a console event, which has no caller. The next event tries again.
template <typename Request>
void carryOutForConsole(const char* name, const Request& request) {
    try {
        carryOut(name, request);
    } catch (...) {
        return;
    }
}

bool isPending(std::uint32_t state) {
    return state != KestService::RUNNING && state != KestService::STOPPED;
}

// Joins the texts, each with a blank after it. The first text is the service's name and is skipped.
std::string startArguments(const std::vector<std::string>& texts) {
    std::string arguments;
    for (std::size_t i = 1; i < texts.size(); ++i)
        arguments += texts[i] + ' ';
    return arguments;
}

}  // namespace

void ServiceHost::setCurrent(KestService* service) noexcept {
    g_current.store(service, std::memory_order_release);
}

void ServiceHost::forget(KestService& service) noexcept {
    KestService* expected = &service;
    g_current.compare_exchange_strong(expected, nullptr);
}

void ServiceHost::serviceMain(const std::vector<std::string>& arguments) {
    KestService* const service = g_current.load(std::memory_order_acquire);
    if (service == nullptr) return;
    void* const handle = platform::serviceManager().registerControlHandler(service->serviceName(), onControl);
    if (handle == nullptr) return;
    setStatusHandle(*service, handle);
    report(*service, KestService::START_PENDING, 0, kServiceWaitHint);
    runService(*service, startArguments(arguments));
}

void ServiceHost::onControl(std::uint32_t control) {
    KestService* const service = g_current.load(std::memory_order_acquire);
    if (service == nullptr) return;
    if (control == platform::kServiceControlStop) {
        carryOut("stop", [&] { service->stop(); });
    } else if (control == platform::kServiceControlParameterChange && reload(*service)) {
        carryOut("reload", reload(*service));
    } else {
        report(*service, state(*service), 0, 0);
    }
}

bool ServiceHost::onConsoleEvent(std::uint32_t event) {
    if (event != platform::kConsoleControlC && event != platform::kConsoleControlBreak) return false;
    KestService* const service = g_current.load(std::memory_order_acquire);
    if (service == nullptr) return false;
    carryOutForConsole("stop", [&] { service->stop(); });
    return true;
}

bool ServiceHost::onReload(std::uint32_t) {
    KestService* const service = g_current.load(std::memory_order_acquire);
    if (service == nullptr || !reload(*service)) return false;
    carryOutForConsole("reload", reload(*service));
    return true;
}

void ServiceHost::logReport(KestService& service, std::uint32_t state) {
    if (service.m_pRecord->runAsService) traceStep("KestService::ReportStatusToSCMgr: state=", state);
}

bool ServiceHost::send(KestService& service, std::uint32_t state, std::uint32_t exitCode, std::uint32_t waitHint) {
    ServiceRecord& record = *service.m_pRecord;
    if (!record.runAsService) return true;
    const std::lock_guard guard(g_reportLock);
    platform::ServiceStatus& status = record.status;
    const std::uint32_t accepted =
        platform::kServiceAcceptStop | (record.reload ? platform::kServiceAcceptParameterChange : 0);
    status.controlsAccepted = state == KestService::START_PENDING ? 0 : accepted;
    status.currentState = state;
    status.exitCode = exitCode;
    status.waitHint = waitHint;
    status.checkPoint = isPending(state) ? g_checkPoint++ : 0;
    return platform::serviceManager().setStatus(record.statusHandle, status) == 0;
}

bool ServiceHost::report(KestService& service, std::uint32_t state, std::uint32_t exitCode, std::uint32_t waitHint) {
    logReport(service, state);
    return send(service, state, exitCode, waitHint);
}

void ServiceHost::keepFailure(KestService& service, const std::string& text) {
    platform::serviceManager().setFailureText(service.m_pRecord->statusHandle, text);
}

KestService::tState ServiceHost::requestStop(KestService& service) {
    return service.m_pRecord->state.exchange(KestService::STOP_PENDING);
}

void ServiceHost::withdrawStop(KestService& service, KestService::tState before) {
    const std::lock_guard guard(g_reportLock);
    if (service.m_pRecord->stopTaken) return;
    KestService::tState expected = KestService::STOP_PENDING;
    service.m_pRecord->state.compare_exchange_strong(expected, before);
}

void ServiceHost::takeStop(KestService& service) {
    const std::lock_guard guard(g_reportLock);
    service.m_pRecord->stopTaken = true;
}

void ServiceHost::beginRun(KestService& service) {
    const std::lock_guard guard(g_reportLock);
    service.m_pRecord->stopTaken = false;
}

void ServiceHost::enter(KestService& service, KestService::tState state) {
    const std::lock_guard guard(g_reportLock);
    service.m_pRecord->status.currentState = state;
    service.m_pRecord->state = state;
}

void ServiceHost::keepStatus(KestService& service, const platform::ServiceStatus& status) {
    const std::lock_guard guard(g_reportLock);
    service.m_pRecord->status = status;
}

}  // namespace KestSupport::internal
