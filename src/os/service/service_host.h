// The service mode of KestService: the callbacks of the manager and the console, and the reports of states. It uses
// only the contract of the manager, so tests replace the manager by a recording one.
//
//   ServiceRecord    the private state of a KestService
//   ServiceHost      the callbacks and the reports
//
// Threads of one run: the manager's thread runs serviceMain, the start thread runs startIt, the wait thread waits for a
// request to stop, and the stop thread runs stopIt.
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
    bool hasRun = false;           // start was called; used by start only
    std::function<void()> reload;  // set before start; empty: the service accepts no reload
    // Guarded by the lock of reports:
    platform::ServiceStatus status;
    bool stopTaken = false;  // the service acts on a request to stop, so the request cannot be withdrawn
};

class ServiceHost {
  public:
    /// For the manager: starts the service and returns when it runs or has failed.
    static void serviceMain(const std::vector<std::string>& arguments);
    /// For the manager: stops, reloads, or reports the current state again.
    static void onControl(std::uint32_t control);
    /// For the console: Ctrl+C and Ctrl+Break stop the service.
    static bool onConsoleEvent(std::uint32_t event);
    /// For the console: a request to read the settings again.
    static bool onReload(std::uint32_t event);

    /// The callbacks reach the latest service made. It is forgotten when it is destroyed; getService still returns it.
    static void setCurrent(KestService* service) noexcept;
    static void forget(KestService& service) noexcept;

    /// ReportStatusToSCMgr: logs, then reports. Does not touch the service after the manager has the report.
    static bool report(KestService& service, std::uint32_t state, std::uint32_t exitCode, std::uint32_t waitHint);
    static void logReport(KestService& service, std::uint32_t state);
    static bool send(KestService& service, std::uint32_t state, std::uint32_t exitCode, std::uint32_t waitHint);

    /// Stores a text at the manager that says why the service stops.
    static void keepFailure(KestService& service, const std::string& text);

    /// Sets the state to STOP_PENDING. Returns the state before it, for withdrawStop.
    static KestService::tState requestStop(KestService& service);
    /// Restores the state when the stop event could not be set, unless the service acts on another request.
    static void withdrawStop(KestService& service, KestService::tState before);
    /// Notes that the service acts on a request to stop.
    static void takeStop(KestService& service);
    /// Begins a run, without a request to stop.
    static void beginRun(KestService& service);

    /// Sets the service's state, also in the status for the next report.
    static void enter(KestService& service, KestService::tState state);
    /// Stores the manager's answer about the service.
    static void keepStatus(KestService& service, const platform::ServiceStatus& status);

    static std::atomic<KestService::tState>& state(KestService& service) { return service.m_pRecord->state; }
    static KestEvent& stopEvent(KestService& service) { return service.m_event; }
    static const std::function<void()>& reload(KestService& service) { return service.m_pRecord->reload; }
    static void setStatusHandle(KestService& service, void* handle) { service.setStatusHandle(handle); }
    static bool startIt(KestService& service, const std::string& arguments) { return service.startIt(arguments); }
    static bool stopIt(KestService& service) { return service.stopIt(); }
};

}  // namespace KestSupport::internal
