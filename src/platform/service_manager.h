// The service control manager, from both of its sides: the dispatcher side, which a service's process meets, and the
// client side, which administers services.
//
//   ServiceStatus, ServiceConfiguration    what is told and registered, with the platform's numbers
//   ServiceManager                         the calls; results are platform error numbers, 0 for success
//   serviceManager, setServiceManager      the process's manager, and its replacement in tests
//   dependencyNames                        the names in a text of dependencies
//
// A service's name has 1 to 256 bytes, none of them a separator of paths or a control character; else it is refused
// with errorInvalidName. Names are told apart byte by byte.
//
// Handles belong to the caller, who gives each one back with closeHandle; the status handle alone is the manager's. A
// handle allows what it was opened for; any other call gives errorAccessDenied. A call with a null handle, or with one
// of the other kind, gives errorInvalidHandle.
//
// Threads: every call may be made by any thread. No call keeps a reference to its arguments.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/error.h"
#include "support/strings.h"

namespace KestSupport::platform {

inline constexpr std::uint32_t kServiceOwnProcess = 0x10;
inline constexpr std::uint32_t kServiceInteractive = 0x100;
inline constexpr std::uint32_t kServiceAutoStart = 2;
inline constexpr std::uint32_t kServiceDemandStart = 3;
inline constexpr std::uint32_t kServiceDisabled = 4;
inline constexpr std::uint32_t kServiceErrorNormal = 1;

inline constexpr std::uint32_t kServiceStopped = 1;
inline constexpr std::uint32_t kServiceStartPending = 2;
inline constexpr std::uint32_t kServiceStopPending = 3;
inline constexpr std::uint32_t kServiceRunning = 4;
inline constexpr std::uint32_t kServiceContinuePending = 5;
inline constexpr std::uint32_t kServicePausePending = 6;
inline constexpr std::uint32_t kServicePaused = 7;

inline constexpr std::uint32_t kServiceControlStop = 1;
inline constexpr std::uint32_t kServiceControlPause = 2;
inline constexpr std::uint32_t kServiceControlContinue = 3;
inline constexpr std::uint32_t kServiceControlInterrogate = 4;
inline constexpr std::uint32_t kServiceControlParameterChange = 6;
inline constexpr std::uint32_t kServiceControlFirstOfUser = 128;
inline constexpr std::uint32_t kServiceControlLastOfUser = 255;

inline constexpr std::uint32_t kServiceAcceptStop = 1;
inline constexpr std::uint32_t kServiceAcceptPauseContinue = 2;
inline constexpr std::uint32_t kServiceAcceptParameterChange = 8;

inline constexpr std::uint32_t kServiceManagerConnect = 1;
inline constexpr std::uint32_t kServiceManagerCreateService = 2;
inline constexpr std::uint32_t kServiceManagerEnumerate = 4;
inline constexpr std::uint32_t kServiceManagerAllAccess = 0xF003F;

inline constexpr std::uint32_t kServiceQueryConfiguration = 0x1;
inline constexpr std::uint32_t kServiceChangeConfiguration = 0x2;
inline constexpr std::uint32_t kServiceQueryStatus = 0x4;
inline constexpr std::uint32_t kServiceStart = 0x10;
inline constexpr std::uint32_t kServiceStop = 0x20;
inline constexpr std::uint32_t kServicePauseContinue = 0x40;
inline constexpr std::uint32_t kServiceInterrogate = 0x80;
inline constexpr std::uint32_t kServiceUserControl = 0x100;
inline constexpr std::uint32_t kServiceDelete = 0x10000;
inline constexpr std::uint32_t kServiceAllAccess = 0xF01FF;

/// What a service tells about itself.
struct ServiceStatus {
    std::uint32_t serviceType = kServiceOwnProcess;
    std::uint32_t currentState = 0;      ///< kServiceStopped to kServicePaused
    std::uint32_t controlsAccepted = 0;  ///< kServiceAccept...
    std::uint32_t exitCode = 0;          ///< errorProcessAborted when its process ended without a report
    std::uint32_t serviceExitCode = 0;
    std::uint32_t checkPoint = 0;  ///< grows from one pending report to the next; else 0
    std::uint32_t waitHint = 0;    ///< milliseconds until the next report
    std::uint32_t processId = 0;   ///< of a service that is not stopped; the manager's, ignored in a report
};

/// What a service is registered with. It runs under the account of its manager: the system's own on a platform whose
/// manager is a part of the system, else the one that owns the services.
struct ServiceConfiguration {
    std::string name;
    std::string displayName;
    std::uint32_t type = kServiceOwnProcess;
    std::uint32_t startType = kServiceAutoStart;  ///< automatic, on demand or disabled
    std::uint32_t errorControl = kServiceErrorNormal;
    std::string commandLine;   ///< the program's path and its arguments, quoted as the platform's programs are called
    std::string dependencies;  ///< names of services, each ended by a NUL; the text's own end is one more NUL
};

/// What of a configuration is to become another; the rest stays.
struct ServiceChange {
    std::optional<std::string> displayName = {};
    std::optional<std::uint32_t> startType = {};
    std::optional<std::string> commandLine = {};
    std::optional<std::string> dependencies = {};
};

/// One service of a list.
struct ServiceEntry {
    std::string name;
    std::string displayName;
    ServiceStatus status;
    ErrorCode error = 0;  ///< why the two texts or the status are not known, such as errorInvalidData
};

class ServiceManager {
  public:
    using Handle = void*;
    /// Arguments: the service's name, then those of the start request.
    using ServiceMain = void (*)(const std::vector<std::string>& arguments);
    using ControlHandler = void (*)(std::uint32_t control);

    virtual ~ServiceManager() = default;

    // Dispatcher side. A process is one service, so the name that counts is the one that it was registered under.

    /// Gives the calling thread to the manager, which calls `main` on another one. Returns when the service has
    /// reported that it is stopped, and main has returned or had a second for that; at once with
    /// errorFailedServiceControllerConnect in a process that the manager did not start. A main that returns without a
    /// control handler, or that throws, has stopped the service. A supervisor's request that the process end (SIGTERM)
    /// reaches the service as kServiceControlStop.
    virtual ErrorCode runDispatcher(const std::string& service, ServiceMain main) = 0;
    /// Controls reach `handler`, on a thread of the manager, one at a time. The status handle; null when the manager
    /// refuses.
    virtual Handle registerControlHandler(const std::string& service, ControlHandler handler) = 0;
    /// Once a service is stopped it has no status to report: errorInvalidHandle.
    virtual ErrorCode setStatus(Handle statusHandle, const ServiceStatus& status) = 0;
    /// Keeps a text for people that says why the service is about to report that it is stopped, such as what its start
    /// threw. It stays until the next start; its first 1,000 bytes count.
    virtual ErrorCode setFailureText(Handle, const std::string&) { return errorCallNotImplemented; }

    // Client side. A handle is null unless the result is 0. A service that is not registered (any more):
    // errorServiceDoesNotExist; one that is marked for deletion takes no change: errorServiceMarkedForDelete.

    /// errorAccessDenied for another user than the owner of the services and the system's administrator.
    virtual ErrorCode openManager(std::uint32_t access, Handle& manager) = 0;
    /// Each service once, in the order of the names. One that is damaged is listed with its error.
    virtual ErrorCode enumerateServices(Handle manager, std::vector<ServiceEntry>& services) = 0;
    /// errorServiceExists; errorInvalidParameter for a field out of its range; errorCircularDependency.
    virtual ErrorCode createService(Handle manager, const ServiceConfiguration& configuration, std::uint32_t access,
                                    Handle& service) = 0;
    virtual ErrorCode openService(Handle manager, const std::string& name, std::uint32_t access, Handle& service) = 0;
    virtual ErrorCode queryConfiguration(Handle service, ServiceConfiguration& configuration) = 0;
    /// A change holds from the next start on.
    virtual ErrorCode changeConfiguration(Handle service, const ServiceChange& change) = 0;
    virtual ErrorCode queryDescription(Handle service, wstring16& description) = 0;
    virtual ErrorCode setDescription(Handle service, const wstring16& description) = 0;
    /// Starts what the service depends on, waits until that runs, then starts the service, and returns when its process
    /// has called runDispatcher; the service is start pending by then, or further. Fails with
    /// errorServiceAlreadyRunning also while it is starting or stopping, errorServiceDisabled,
    /// errorServiceDependencyDeleted, errorServiceDependencyFail, errorCircularDependency; errorServiceRequestTimeout
    /// after 30 seconds, errorProcessAborted when the process ended before; or what the program cannot be executed for.
    virtual ErrorCode startService(Handle service, const std::vector<std::string>& arguments) = 0;
    /// Kills the program that a call of startService in this process waits for, with the group that it leads. From now
    /// on such calls fail with errorProcessAborted. For a program that was itself asked to end.
    virtual void cancelStarts() noexcept {}
    /// Kills the process of a service that is not stopped, with its group, and waits until the service is stopped:
    /// errorServiceRequestTimeout after 30 seconds, errorServiceNotActive for a service that is stopped,
    /// errorServiceCannotAcceptControl while the start of its program is still to come. Asks for kServiceStop.
    virtual ErrorCode endService(Handle) { return errorCallNotImplemented; }
    /// Sends a control and waits until the handler has returned. `answer` is the status after it; also when the service
    /// did not get the control for its state (errorServiceNotActive, errorServiceCannotAcceptControl) or takes no such
    /// control (errorInvalidServiceControl). Otherwise it is untouched: errorDependentServicesRunning for a stop while
    /// a service that depends on this one is not stopped, errorServiceRequestTimeout after 30 seconds,
    /// errorExceptionInService, errorInvalidParameter for a code that is none. A service that is asked to stop is
    /// stop pending from then on, whether it has reported that or not; when its handler throws, it has the state before
    /// again. A stop ends a program that has been started and has not called runDispatcher yet: it is asked to end as a
    /// supervisor does, and killed after a second.
    virtual ErrorCode control(Handle service, std::uint32_t control, ServiceStatus& answer) = 0;
    virtual ErrorCode queryStatus(Handle service, ServiceStatus& status) = 0;
    /// The text of setFailureText; empty when there is none. Asks for kServiceQueryStatus.
    virtual ErrorCode queryFailureText(Handle, std::string&) { return errorCallNotImplemented; }
    /// A service that is not stopped is marked, and goes when it has stopped.
    virtual ErrorCode deleteService(Handle service) = 0;
    virtual void closeHandle(Handle handle) = 0;
};

/// The platform's manager, or the one that setServiceManager put in its place.
ServiceManager& serviceManager() noexcept;

/// Replaces the manager for the whole process; null brings back the platform's. It outlives its use.
void setServiceManager(ServiceManager* manager) noexcept;

/// The names in a text of dependencies, up to the first empty one.
std::vector<std::string> dependencyNames(std::string_view dependencies);

/// Back end: the platform's manager.
ServiceManager& platformServiceManager() noexcept;

}  // namespace KestSupport::platform
