// The service mode of KestService: which state is reported when, and how the threads of a service's life meet. It knows
// the manager only as a contract, so it runs the same against a recording one.
//
//   ServiceRecord    what a service remembers about itself
//   ServiceHost      what the manager and the console call, and the reports
//
// Threads of one life: the manager's, which runs serviceMain; the start thread, which runs startIt; the wait thread,
// which sleeps until the service is asked to stop; the stop thread, which runs stopIt.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/service_manager.h"
#include "support/service.h"

namespace KestSupport::internal {

struct ServiceRecord {
    std::atomic<KestService::tState> state{KestService::STOPPED};
    std::atomic<bool> runAsService{false};
    std::atomic<platform::ServiceManager::Handle> statusHandle{nullptr};
    bool hasRun = false;           // start has been called; only start looks
    std::function<void()> reload;  // set before start; empty: the service accepts no reload
    // Guarded by the lock of reports:
    platform::ServiceStatus status;
    bool stopTaken = false;  // the service acts on a request to stop, so the request can no longer be withdrawn
};

class ServiceHost {
  public:
    /// For the manager: brings the service up and returns when it runs or has failed.
    static void serviceMain(const std::vector<std::string>& arguments);
    /// For the manager: stop, reload, or report the present state again.
    static void onControl(std::uint32_t control);
    /// For the console: Ctrl+C and Ctrl+Break stop the service.
    static bool onConsoleEvent(std::uint32_t event);
    /// For the console: a request to read the settings again.
    static bool onReload(std::uint32_t event);

    /// Whom these reach: the latest service made. getService goes on naming it after its end; here it is forgotten.
    static void setCurrent(KestService* service) noexcept;
    static void forget(KestService& service) noexcept;

    /// ReportStatusToSCMgr: the record in the log, then the report. Touches nothing of the service once the manager has
    /// the report.
    static bool report(KestService& service, std::uint32_t state, std::uint32_t exitCode, std::uint32_t waitHint);
    static void logReport(KestService& service, std::uint32_t state);
    static bool send(KestService& service, std::uint32_t state, std::uint32_t exitCode, std::uint32_t waitHint);

    /// Leaves a text with the manager that says why the service is about to stop.
    static void keepFailure(KestService& service, const std::string& text);

    /// A request to stop: the state becomes STOP_PENDING. Returns the state before it, for withdrawStop.
    static KestService::tState requestStop(KestService& service);
    /// The stop event could not be set: restores the state, unless the service acts on another request.
    static void withdrawStop(KestService& service, KestService::tState before);
    /// The service acts on a request to stop.
    static void takeStop(KestService& service);
    /// A new run begins; no request to stop has been taken.
    static void beginRun(KestService& service);

    /// The service's state, for itself and in the status that the next report starts from.
    static void enter(KestService& service, KestService::tState state);
    /// What the manager answered about the service.
    static void keepStatus(KestService& service, const platform::ServiceStatus& status);

    static std::atomic<KestService::tState>& state(KestService& service) { return service.m_pRecord->state; }
    static KestEvent& stopEvent(KestService& service) { return service.m_event; }
    static const std::function<void()>& reload(KestService& service) { return service.m_pRecord->reload; }
    static void setStatusHandle(KestService& service, void* handle) { service.setStatusHandle(handle); }
    static bool startIt(KestService& service, const std::string& arguments) { return service.startIt(arguments); }
    static bool stopIt(KestService& service) { return service.stopIt(); }
};

}  // namespace KestSupport::internal
