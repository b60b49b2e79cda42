// The service control manager, from both of its sides: the dispatcher side, which a service's process meets, and the
// client side, which administers services.
//
//   ServiceStatus, ServiceConfiguration    what is told and registered, with the platform's numbers
//   ServiceManager                         the calls; results are platform error numbers, 0 for success
//   serviceManager, setServiceManager      the process's manager, and its replacement in tests
//
// Handles belong to the caller, who gives each one back with closeHandle; the status handle alone is the manager's.
// Threads: every call may be made by any thread. No call keeps a reference to its arguments.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/error.h"
#include "support/strings.h"

namespace KestSupport::platform {

inline constexpr std::uint32_t kServiceOwnProcess = 0x10;
inline constexpr std::uint32_t kServiceInteractive = 0x100;
inline constexpr std::uint32_t kServiceAutoStart = 2;
inline constexpr std::uint32_t kServiceErrorNormal = 1;
inline constexpr std::uint32_t kServiceControlStop = 1;
inline constexpr std::uint32_t kServiceAcceptStop = 1;
inline constexpr std::uint32_t kServiceManagerAllAccess = 0xF003F;
inline constexpr std::uint32_t kServiceAllAccess = 0xF01FF;

/// What a service tells about itself.
struct ServiceStatus {
    std::uint32_t serviceType = kServiceOwnProcess;
    std::uint32_t currentState = 0;  ///< 1 stopped, 2 start pending, 3 stop pending, 4 running
    std::uint32_t controlsAccepted = 0;
    std::uint32_t exitCode = 0;
    std::uint32_t serviceExitCode = 0;
    std::uint32_t checkPoint = 0;  ///< grows from one pending report to the next; else 0
    std::uint32_t waitHint = 0;    ///< milliseconds until the next report
};

/// What a service is registered with. It runs under the system's own account.
struct ServiceConfiguration {
    std::string name;
    std::string displayName;
    std::uint32_t type = kServiceOwnProcess;
    std::uint32_t startType = kServiceAutoStart;
    std::uint32_t errorControl = kServiceErrorNormal;
    std::string commandLine;
    std::string dependencies;  ///< names of services, each ended by a NUL; the text's own end is one more NUL
};

class ServiceManager {
  public:
    using Handle = void*;
    /// Arguments: the service's name, then those of the start request.
    using ServiceMain = void (*)(const std::vector<std::string>& arguments);
    using ControlHandler = void (*)(std::uint32_t control);

    virtual ~ServiceManager() = default;

    // Dispatcher side.

    /// Gives the calling thread to the manager, which calls `main` on another one. Returns when the service has
    /// reported that it is stopped; at once with errorFailedServiceControllerConnect in a process that the manager did
    /// not start.
    virtual ErrorCode runDispatcher(const std::string& service, ServiceMain main) = 0;
    /// Controls reach `handler`, on a thread of the manager. The status handle; null when the manager refuses.
    virtual Handle registerControlHandler(const std::string& service, ControlHandler handler) = 0;
    virtual ErrorCode setStatus(Handle statusHandle, const ServiceStatus& status) = 0;

    // Client side. A handle is null unless the result is 0.

    virtual ErrorCode openManager(std::uint32_t access, Handle& manager) = 0;
    virtual ErrorCode createService(Handle manager, const ServiceConfiguration& configuration, std::uint32_t access,
                                    Handle& service) = 0;
    virtual ErrorCode openService(Handle manager, const std::string& name, std::uint32_t access, Handle& service) = 0;
    virtual ErrorCode setDescription(Handle service, const wstring16& description) = 0;
    /// Sends a control; `answer` is the status after it, untouched when the control was not accepted.
    virtual ErrorCode control(Handle service, std::uint32_t control, ServiceStatus& answer) = 0;
    virtual ErrorCode queryStatus(Handle service, ServiceStatus& status) = 0;
    virtual ErrorCode deleteService(Handle service) = 0;
    virtual void closeHandle(Handle handle) = 0;
};

/// The platform's manager, or the one that setServiceManager put in its place.
ServiceManager& serviceManager() noexcept;

/// Replaces the manager for the whole process; null brings back the platform's. It outlives its use.
void setServiceManager(ServiceManager* manager) noexcept;

/// Back end: the platform's manager.
ServiceManager& platformServiceManager() noexcept;

}  // namespace KestSupport::platform
