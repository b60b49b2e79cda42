// Registers and unregisters a service in the manager's database.
#include "os/service/service_host.h"
#include "platform/process.h"
#include "platform/program_path.h"
#include "platform/service_manager.h"
#include "platform/thread.h"
#include "support/service.h"
#include "text/log/internal_log.h"

namespace KestSupport {
namespace {

using platform::ServiceManager;

constexpr std::size_t kPathCapacity = 512;
constexpr std::uint32_t kStopPollInterval = 1000;  // milliseconds

class OwnedServiceHandle {
  public:
    OwnedServiceHandle() = default;
    OwnedServiceHandle(const OwnedServiceHandle&) = delete;
    OwnedServiceHandle& operator=(const OwnedServiceHandle&) = delete;
    ~OwnedServiceHandle() {
        if (m_handle != nullptr) platform::serviceManager().closeHandle(m_handle);
    }

    /// Returns the variable in which a call stores the handle.
    ServiceManager::Handle& slot() { return m_handle; }
    ServiceManager::Handle get() const { return m_handle; }

  private:
    ServiceManager::Handle m_handle = nullptr;
};

// On a platform without a manager there is nothing to register, so install and remove succeed.
bool countsAsSuccess(platform::ErrorCode error) {
    return error == platform::errorCallNotImplemented;
}

}  // namespace

bool KestService::install() {
    platform::Result<std::string> program = platform::programPath();
    if (!program) return countsAsSuccess(program.error());
    if (program->size() >= kPathCapacity) return false;
    platform::ServiceConfiguration configuration;
    configuration.commandLine = *std::move(program);
    // Without quotes, "/opt/my app" could start the program /opt/my.
    if (configuration.commandLine.find_first_of(" \t\n") != std::string::npos) {
        configuration.commandLine = platform::quoteArgument(configuration.commandLine);
    }
    if (!m_arguments.empty()) configuration.commandLine += ' ' + m_arguments;

    ServiceManager& all = platform::serviceManager();
    OwnedServiceHandle manager;
    if (const platform::ErrorCode error = all.openManager(platform::kServiceManagerAllAccess, manager.slot());
        error != 0) {
        return countsAsSuccess(error);
    }
    configuration.name = m_serviceName;
    configuration.displayName = m_displayName;
    if (m_interactive) configuration.type |= platform::kServiceInteractive;
    configuration.dependencies = m_dependencies;
    OwnedServiceHandle service;
    if (all.createService(manager.get(), configuration, platform::kServiceAllAccess, service.slot()) != 0) return false;

    if (m_description.empty()) return true;
    internal::logRecord(internal::LogLevel::notice, "KestService::install: adding service description");
    if (const platform::ErrorCode error = all.setDescription(service.get(), m_description); error != 0) {
        internal::logRecord(internal::LogLevel::warning, "KestService::install: failed to set service description (",
                            error, ")");
    }
    return true;
}

bool KestService::remove() {
    ServiceManager& all = platform::serviceManager();
    OwnedServiceHandle manager;
    if (const platform::ErrorCode error = all.openManager(platform::kServiceManagerAllAccess, manager.slot());
        error != 0) {
        return countsAsSuccess(error);
    }
    OwnedServiceHandle service;
    if (all.openService(manager.get(), m_serviceName, platform::kServiceAllAccess, service.slot()) != 0) return false;

    platform::ServiceStatus status;
    if (all.control(service.get(), platform::kServiceControlStop, status) == 0) {
        internal::ServiceHost::keepStatus(*this, status);
        do {
            platform::sleepThread(kStopPollInterval);
            if (all.queryStatus(service.get(), status) != 0) break;
            internal::ServiceHost::keepStatus(*this, status);
            m_pRecord->state = status.currentState == STOP_PENDING ? STOP_PENDING : STOPPED;
        } while (status.currentState == STOP_PENDING);
    }
    return all.deleteService(service.get()) == 0;
}

}  // namespace KestSupport
