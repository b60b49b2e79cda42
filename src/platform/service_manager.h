// The service control manager: the dispatcher side for the process of a service, and the client side for programs that
// administer services.
//
//   ServiceStatus, ServiceConfiguration    status and registration, with the platform's numbers
//   ServiceManager                         the calls; results are platform error numbers, 0 for success
//   serviceManager, setServiceManager      the process's manager, and its replacement in tests
//   dependencyNames                        the names in a text of dependencies
//
// A service's name has 1 to 256 bytes, without separators of paths and control characters; any other name gives
// errorInvalidName. Names are compared byte by byte, or without regard to case by a manager that is a part of the
// system.
//
// The caller closes each handle with closeHandle, except the status handle, which belongs to the manager. A handle
// allows the access that it was opened for; any other call gives errorAccessDenied. A call with a null handle, or with
// one of the other kind, gives errorInvalidHandle.
//
// Threads: any thread may make any call. No call keeps a reference to its arguments.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/error.h"

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

inline constexpr std::uint32_t kServiceRestartNever = 0;
inline constexpr std::uint32_t kServiceRestartOnFailure = 1;
inline constexpr std::uint32_t kServiceRestartAlways = 2;

/// What a service reports about itself.
struct ServiceStatus {
    std::uint32_t serviceType = kServiceOwnProcess;
    std::uint32_t currentState = 0;      ///< kServiceStopped to kServicePaused
    std::uint32_t controlsAccepted = 0;  ///< kServiceAccept...
    std::uint32_t exitCode = 0;          ///< errorProcessAborted when its process ended without reporting
    std::uint32_t serviceExitCode = 0;
    std::uint32_t checkPoint = 0;  ///< grows from one pending report to the next; otherwise 0
    std::uint32_t waitHint = 0;    ///< milliseconds until the next report
    std::uint32_t processId = 0;   ///< of a service that is not stopped; set by the manager, ignored in a report
};

/// The registration of a service. A service runs under the account of its manager: the system's account if the manager
/// is a part of the system, otherwise the account that owns the services.
struct ServiceConfiguration {
    std::string name;
    std::string displayName;  ///< for an empty one, a manager that is a part of the system takes the name
    std::uint32_t type = kServiceOwnProcess;
    std::uint32_t startType = kServiceAutoStart;  ///< automatic, on demand or disabled
    std::uint32_t errorControl = kServiceErrorNormal;
    std::string commandLine;   ///< the program's path and its arguments, quoted as the platform's programs are called
    std::string dependencies;  ///< names of services, each followed by a NUL; one more NUL may end the text
    /// Which ends of the service make a supervisor start it again; a stop by request never does.
    std::uint32_t restart = kServiceRestartNever;

    bool operator==(const ServiceConfiguration&) const = default;
};

/// New values for parts of a configuration; the rest stays.
struct ServiceChange {
    std::optional<std::string> displayName = {};
    std::optional<std::uint32_t> startType = {};
    std::optional<std::string> commandLine = {};
    std::optional<std::string> dependencies = {};
    std::optional<std::uint32_t> restart = {};
};

/// The last run of a service. Times are nanoseconds since 1970-01-01 00:00:00 UTC.
struct ServiceRun {
    std::uint32_t processId = 0;
    std::int64_t started = 0;          ///< 0: not known, such as for a service that has never been started
    std::int64_t ended = 0;            ///< 0: it has not ended, or ended without a report and without a supervisor
    bool endRequested = false;         ///< a client has asked for the stop, or has killed the process
    std::optional<int> exitCode = {};  ///< of the process, minus its signal's number; known to a supervisor only

    bool operator==(const ServiceRun&) const = default;
};

/// Reads what a service writes to its standard output and error, the oldest bytes first. For one thread.
class ServiceOutput {
  public:
    virtual ~ServiceOutput() = default;
    /// Appends the next bytes, about 64 KiB at most, and none when there are no new ones. Sets `mayMiss` when the
    /// service has discarded bytes that were not read.
    virtual ErrorCode read(std::string& text, bool& mayMiss) = 0;
};

/// One service of a list.
struct ServiceEntry {
    std::string name;
    std::string displayName;
    ServiceStatus status;
    ErrorCode error = 0;  ///< why the display name or the status is unknown, such as errorInvalidData
};

class ServiceManager {
  public:
    using Handle = void*;
    /// Arguments: the service's name, then those of the start request.
    using ServiceMain = void (*)(const std::vector<std::string>& arguments);
    using ControlHandler = void (*)(std::uint32_t control);

    virtual ~ServiceManager() = default;

    // Dispatcher side. A process is one service, with the name that it was registered under; the name given here is
    // ignored.

    /// Serves controls on the calling thread and calls `main` on another one. Returns after the service has reported
    /// that it is stopped, and main has returned or a second has passed. In a process that the manager did not start,
    /// returns errorFailedServiceControllerConnect at once. When main throws, or returns without a control handler, the
    /// service is stopped with the exit code errorExceptionInService or errorProcessAborted. A supervisor's request
    /// that the process end (SIGTERM) becomes kServiceControlStop.
    virtual ErrorCode runDispatcher(const std::string& service, ServiceMain main) = 0;
    /// The manager calls `handler` for each control, one at a time, on one of its threads. Returns the status handle;
    /// null when the manager refuses.
    virtual Handle registerControlHandler(const std::string& service, ControlHandler handler) = 0;
    /// errorInvalidHandle after the service has reported that it is stopped.
    virtual ErrorCode setStatus(Handle statusHandle, const ServiceStatus& status) = 0;
    /// Keeps a text that explains why the service is about to report that it is stopped, such as the text of an
    /// exception. It stays until the next start and is cut to 1,000 bytes.
    virtual ErrorCode setFailureText(Handle, const std::string&) { return errorCallNotImplemented; }

    // Client side. A handle is null unless the result is 0. A service that is not registered, or no longer:
    // errorServiceDoesNotExist. A change of a service that is marked for deletion: errorServiceMarkedForDelete.

    /// errorAccessDenied for a user who is neither the owner of the services nor the administrator.
    virtual ErrorCode openManager(std::uint32_t access, Handle& manager) = 0;
    /// Each service once, ordered by name. A damaged service is listed with its error.
    virtual ErrorCode enumerateServices(Handle manager, std::vector<ServiceEntry>& services) = 0;
    /// errorServiceExists; errorInvalidParameter for a field out of its range; errorCircularDependency.
    virtual ErrorCode createService(Handle manager, const ServiceConfiguration& configuration, std::uint32_t access,
                                    Handle& service) = 0;
    virtual ErrorCode openService(Handle manager, const std::string& name, std::uint32_t access, Handle& service) = 0;
    virtual ErrorCode queryConfiguration(Handle service, ServiceConfiguration& configuration) = 0;
    /// A change takes effect with the next start.
    virtual ErrorCode changeConfiguration(Handle service, const ServiceChange& change) = 0;
    /// The description is UTF-16.
    virtual ErrorCode queryDescription(Handle service, std::vector<unsigned short>& description) = 0;
    virtual ErrorCode setDescription(Handle service, std::span<const unsigned short> description) = 0;
    /// Starts the services that this one depends on, waits until they run, starts the service, and returns when its
    /// process has called runDispatcher; the service is then start pending or in a later state. Errors:
    /// errorServiceAlreadyRunning, also while it is starting or stopping; errorServiceDisabled;
    /// errorServiceDependencyDeleted; errorServiceDependencyFail; errorCircularDependency; errorServiceRequestTimeout
    /// after 30 seconds; errorProcessAborted when the process ends before; the error of executing the program.
    virtual ErrorCode startService(Handle service, const std::vector<std::string>& arguments) = 0;
    /// Kills the program that a call of startService in this process waits for, with the group that it leads. From now
    /// on such calls fail with errorProcessAborted. Used by a program that has received a request to end. Without
    /// effect when the manager is a part of the system, which ends a program that does not call runDispatcher in time.
    virtual void cancelStarts() noexcept {}
    /// Kills the process of a service that is not stopped, with its group on a system with groups of processes, and
    /// waits until the service is stopped: errorServiceRequestTimeout after 30 seconds, errorServiceNotActive for a
    /// service that is stopped, errorServiceCannotAcceptControl before its program has started. Requires kServiceStop
    /// and kServiceQueryStatus.
    virtual ErrorCode endService(Handle) { return errorCallNotImplemented; }
    /// Sends a control and waits until the handler has returned. Stores the status after it in `answer`, also when the
    /// service could not receive the control in its state (errorServiceNotActive, errorServiceCannotAcceptControl) or
    /// does not accept it (errorInvalidServiceControl). With the other errors `answer` is untouched:
    /// errorDependentServicesRunning for a stop while a service that depends on this one is not stopped,
    /// errorServiceRequestTimeout after 30 seconds, errorExceptionInService, errorInvalidParameter for a number that is
    /// no control. With a stop request the service becomes stop pending, before it reports that; when its handler
    /// throws, it returns to its previous state. If the manager is embedded, a stop of a program that has been started
    /// and has not called runDispatcher ends the program: it is asked to end as a supervisor does, and killed after a
    /// second.
    virtual ErrorCode control(Handle service, std::uint32_t control, ServiceStatus& answer) = 0;
    virtual ErrorCode queryStatus(Handle service, ServiceStatus& status) = 0;
    /// The text of setFailureText; empty when there is none. Requires kServiceQueryStatus.
    virtual ErrorCode queryFailureText(Handle, std::string&) { return errorCallNotImplemented; }
    /// The last run; of a service that has never been started, one without times. Requires kServiceQueryStatus.
    virtual ErrorCode queryRun(Handle, ServiceRun&) { return errorCallNotImplemented; }
    /// A supervisor notes how the service's process has ended. Without effect when the last run is that of another
    /// process. Requires kServiceStop.
    virtual ErrorCode noteProcessEnd(Handle, std::uint32_t, int) { return errorCallNotImplemented; }
    /// What the service has written and will write. The object may outlive the handle. Requires kServiceQueryStatus.
    virtual ErrorCode openOutput(Handle, std::unique_ptr<ServiceOutput>&) { return errorCallNotImplemented; }
    /// The path of the folder in which the manager keeps the services; empty when it keeps them elsewhere. With a null
    /// handle: the folder that openManager looks for.
    virtual std::string location(Handle) { return {}; }
    /// A service that is not stopped is marked for deletion, and deleted when it has stopped.
    virtual ErrorCode deleteService(Handle service) = 0;
    virtual void closeHandle(Handle handle) = 0;
};

/// The platform's manager, or the one that setServiceManager has set.
ServiceManager& serviceManager() noexcept;

/// Replaces the manager for the whole process; null restores the platform's manager. The manager must outlive its use.
void setServiceManager(ServiceManager* manager) noexcept;

inline constexpr std::size_t kLongestServiceName = 256;  ///< bytes

/// Returns whether a service can have the name.
bool isServiceName(std::string_view name) noexcept;

/// Orders the services by name.
void sortByName(std::vector<ServiceEntry>& services);

/// The milliseconds that runDispatcher waits for main after the service has stopped.
inline constexpr std::uint32_t kServiceMainPatience = 1000;

/// The names in a text of dependencies, up to the first empty one.
std::vector<std::string> dependencyNames(std::string_view dependencies);

/// Back end: the platform's manager.
ServiceManager& platformServiceManager() noexcept;

}  // namespace KestSupport::platform
