#include "support/service.h"

#include <optional>
#include <utility>

#include "os/service/service_host.h"
#include "platform/console.h"
#include "platform/supervisor.h"
#include "text/log/internal_log.h"

namespace KestSupport {

using internal::LogLevel;
using internal::logRecord;
using internal::ServiceHost;

namespace {

// Registers the console handler for its lifetime.
struct ConsoleHandling {
    const platform::ConsoleHandler handler;
    const bool added;
    ConsoleHandling(platform::ConsoleHandler wanted, platform::ConsoleEvents kind)
        : handler(wanted), added(platform::addConsoleHandler(wanted, kind)) {}
    ConsoleHandling(const ConsoleHandling&) = delete;
    ConsoleHandling& operator=(const ConsoleHandling&) = delete;
    ~ConsoleHandling() {
        if (added) platform::removeConsoleHandler(handler);
    }
};

}  // namespace

std::atomic<KestService*> KestService::m_pThis{nullptr};

KestService::KestService() : KestService("", "", "", "", false) {}

KestService::KestService(const std::string& appName, const std::string& serviceName, const std::string& displayName,
                         const std::string& dependencies, bool interactive)
    : m_appName(appName),
      m_serviceName(serviceName),
      m_displayName(displayName),
      m_dependencies(dependencies),
      m_interactive(interactive),
      m_pRecord(std::make_unique<internal::ServiceRecord>()) {
    m_pThis.store(this, std::memory_order_release);
    ServiceHost::setCurrent(this);
}

KestService::KestService(bool interactive, const std::string& dependencies)
    : KestService("", "", "", dependencies, interactive) {}

// From here on no control or console event reaches this object. A later object stays the current one.
KestService::~KestService() {
    ServiceHost::forget(*this);
}

bool KestService::start(const std::string& arguments, bool runAsService) {
    if (state() == RUNNING) return true;
    // A stop request that the last run did not consume must not end this run. One before the first run counts.
    if (std::exchange(m_pRecord->hasRun, true)) m_event.reset();
    ServiceHost::beginRun(*this);
    std::optional<ConsoleHandling> reloads;
    if (m_pRecord->reload) reloads.emplace(ServiceHost::onReload, platform::ConsoleEvents::reload);
    bool started = true;
    if (runAsService) {
        runUnderManager();
    } else {
        started = runInConsole(arguments);
    }
    logRecord(LogLevel::trace, "KestService::start: exiting");
    return started;
}

void KestService::runUnderManager() {
    m_pRecord->runAsService = true;
    logRecord(LogLevel::trace, "KestService::start: calling StartServiceCtrlDispatcher");
    ServiceHost::enter(*this, RUNNING);
    platform::serviceManager().runDispatcher(m_serviceName, ServiceHost::serviceMain);
    logRecord(LogLevel::trace, "KestService::start: StartServiceCtrlDispatcher returned, exiting");
    ServiceHost::enter(*this, STOPPED);
}

bool KestService::runInConsole(const std::string& arguments) {
    using platform::SupervisorNews;
    // The last text at the supervisor distinguishes a failed start, by result or exception, from a requested end.
    struct FinalNews {
        const char* status = "The start failed";
        ~FinalNews() { platform::tellSupervisor(SupervisorNews::progress, status); }
    } finalNews;
    platform::tellSupervisor(SupervisorNews::progress, "Starting");
    if (!startIt(arguments)) return false;

    // Also when stopIt throws: after start the service is stopped.
    struct StoppedAtEnd {
        KestService& service;
        ~StoppedAtEnd() { ServiceHost::enter(service, STOPPED); }
    } const stoppedAtEnd{*this};

    ServiceHost::enter(*this, RUNNING);
    const ConsoleHandling endings(ServiceHost::onConsoleEvent, platform::ConsoleEvents::ending);
    finalNews.status = "Stopped";
    platform::tellSupervisor(SupervisorNews::ready, "Running");
    logRecord(LogLevel::trace, "KestService::start: waiting for service to exit");
    m_event.wait(-1);
    ServiceHost::takeStop(*this);
    platform::tellSupervisor(SupervisorNews::stopping, "Stopping");
    logRecord(LogLevel::trace, "KestService::start: service completed.");
    stopIt();
    return true;
}

bool KestService::stop() {
    logRecord(LogLevel::trace, "KestService::stop: entering");
    const tState before = ServiceHost::requestStop(*this);
    try {
        m_event.set();
    } catch (...) {
        ServiceHost::withdrawStop(*this, before);
        throw;
    }
    logRecord(LogLevel::trace, "KestService::stop: exiting");
    return true;
}

KestService::tState KestService::state() const noexcept {
    return m_pRecord->state;
}

bool KestService::ReportStatusToSCMgr(std::uint32_t currentState, std::uint32_t exitCode, std::uint32_t waitHint) {
    return ServiceHost::report(*this, currentState, exitCode, waitHint);
}

void KestService::setStatusHandle(void* handle) noexcept {
    m_pRecord->statusHandle = handle;
}

void* KestService::getStatusHandle() const noexcept {
    return m_pRecord->statusHandle;
}

void KestService::setReload(std::shared_ptr<void> reload, void (*call)(void*)) {
    m_pRecord->reload = [reload = std::move(reload), call] { call(reload.get()); };
}

void KestService::AddToMessageLog(const std::string&) {}

}  // namespace KestSupport
