// The embedded service manager has no process. Services are files (database.h), a service that runs is a process
// (process.h), and a client reads the files and sends messages to the process (client.h).
#include <algorithm>
#include <memory>
#include <mutex>

#include "platform/common/wide_units.h"
#include "platform/console.h"
#include "platform/service_manager.h"
#include "platform/services/client.h"
#include "platform/services/database.h"
#include "platform/services/output.h"
#include "platform/services/process.h"
#include "platform/state_directory.h"
#include "platform/uninterrupted.h"

namespace KestSupport::platform {
namespace {

using Handle = ServiceManager::Handle;

struct OpenHandle {
    bool isService;
    std::uint32_t access;
    std::shared_ptr<const ServiceDatabase> database;
    std::string name;

    const Folder& folder() const { return database->folder(); }
    ServiceFiles files() const { return {folder(), name}; }
};

// Calls `use` for a handle of the right kind that allows the access.
template <typename Use>
ErrorCode withHandle(Handle handle, bool isService, std::uint32_t access, Use use) {
    const auto* const open = static_cast<const OpenHandle*>(handle);
    if (open == nullptr || open->isService != isService) return errorInvalidHandle;
    return (open->access & access) == access ? use(*open) : ErrorCode{errorAccessDenied};
}

template <typename Use>
ErrorCode withManager(Handle handle, std::uint32_t access, Use use) {
    return withHandle(handle, false, access, use);
}

template <typename Use>
ErrorCode withService(Handle handle, std::uint32_t access, Use use) {
    return withHandle(handle, true, access, use);
}

// Stores the value of a result. Returns its error.
template <typename Value>
ErrorCode store(Result<Value> result, Value& value) {
    if (result) value = std::move(*result);
    return result.error();
}

Handle newHandle(bool isService, std::uint32_t access, std::shared_ptr<const ServiceDatabase> database,
                 const std::string& name) {
    return std::make_unique<OpenHandle>(OpenHandle{isService, access, std::move(database), name}).release();
}

// The access that a control requires; 0 for a number that is no control.
std::uint32_t accessFor(std::uint32_t control) {
    switch (control) {
        case kServiceControlStop:
            return kServiceStop;
        case kServiceControlPause:
        case kServiceControlContinue:
        case kServiceControlParameterChange:
            return kServicePauseContinue;
        case kServiceControlInterrogate:
            return kServiceInterrogate;
        default:
            return control >= kServiceControlFirstOfUser && control <= kServiceControlLastOfUser ? kServiceUserControl
                                                                                                 : 0;
    }
}

template <typename Change>
ErrorCode updateConfiguration(const OpenHandle& service, Change change) {
    const Result<SystemHandle> lock = lockDatabase(service.folder());
    if (!lock) return lock.failure();
    Result<StoredService> stored = service.files().read();
    if (!stored) return stored.failure();
    if (stored->deleted) return errorServiceMarkedForDelete;
    change(*stored);
    if (!isValidService(*stored)) return errorInvalidParameter;
    if (const ErrorCode error = checkDependencies(*service.database, *stored); error != 0) return error;
    return service.files().replace(*stored);
}

ErrorCode createIn(const OpenHandle& manager, const StoredService& service) {
    const Result<SystemHandle> lock = lockDatabase(manager.folder());
    if (!lock) return lock.failure();
    const ServiceFiles files(manager.folder(), service.name);
    const Result<StoredService> present = files.read();
    if (present) return present->deleted ? errorServiceMarkedForDelete : errorServiceExists;
    if (present.error() != errorServiceDoesNotExist) return present.failure();
    if (const ErrorCode error = checkDependencies(*manager.database, service); error != 0) return error;
    const Result<bool> active = files.isActive();
    if (!active) return active.failure();
    if (*active) return errorServiceMarkedForDelete;
    // Files can remain of an earlier service of this name.
    files.remove();
    return files.replace(service);
}

ErrorCode deleteIn(const OpenHandle& service) {
    const Result<SystemHandle> lock = lockDatabase(service.folder());
    if (!lock) return lock.failure();
    const ServiceFiles files = service.files();
    Result<StoredService> stored = files.read();
    if (!stored && stored.error() != errorInvalidData) return stored.failure();
    if (stored && stored->deleted) return errorServiceMarkedForDelete;
    const Result<bool> active = files.isActive();
    if (!active && active.error() != errorInvalidData) return active.failure();
    if (!active || !*active) return files.remove();
    if (!stored) return stored.failure();
    stored->deleted = true;
    if (const ErrorCode error = files.replace(*stored); error != 0) return error;
    // A service that has stopped since the first look did not see the mark.
    return files.read().error() == errorServiceDoesNotExist ? files.remove() : errorSuccess;
}

class EmbeddedServiceManager final : public ServiceManager {
  public:
    ErrorCode runDispatcher(const std::string&, ServiceMain main) override;
    Handle registerControlHandler(const std::string&, ControlHandler handler) override;
    ErrorCode setStatus(Handle statusHandle, const ServiceStatus& status) override;
    ErrorCode setFailureText(Handle statusHandle, const std::string& text) override;

    ErrorCode openManager(std::uint32_t access, Handle& manager) override;
    ErrorCode enumerateServices(Handle manager, std::vector<ServiceEntry>& services) override;
    ErrorCode createService(Handle manager, const ServiceConfiguration& configuration, std::uint32_t access,
                            Handle& service) override;
    ErrorCode openService(Handle manager, const std::string& name, std::uint32_t access, Handle& service) override;
    ErrorCode queryConfiguration(Handle service, ServiceConfiguration& configuration) override;
    ErrorCode changeConfiguration(Handle service, const ServiceChange& change) override;
    ErrorCode queryDescription(Handle service, WideUnits& description) override;
    ErrorCode setDescription(Handle service, std::span<const unsigned short> description) override;
    ErrorCode startService(Handle service, const std::vector<std::string>& arguments) override;
    void cancelStarts() noexcept override { platform::cancelStarts(); }
    ErrorCode endService(Handle service) override;
    ErrorCode control(Handle service, std::uint32_t control, ServiceStatus& answer) override;
    ErrorCode queryStatus(Handle service, ServiceStatus& status) override;
    ErrorCode queryFailureText(Handle service, std::string& text) override;
    ErrorCode queryRun(Handle service, ServiceRun& run) override;
    ErrorCode noteProcessEnd(Handle service, std::uint32_t processId, int exitCode) override;
    ErrorCode openOutput(Handle service, std::unique_ptr<ServiceOutput>& output) override;
    std::string location(Handle manager) override;
    ErrorCode deleteService(Handle service) override;
    void closeHandle(Handle handle) override {
        const std::unique_ptr<OpenHandle> closed(static_cast<OpenHandle*>(handle));
    }

  private:
    std::shared_ptr<ServiceProcess> process();
    /// The process with that status handle; null when there is none.
    std::shared_ptr<ServiceProcess> processOf(Handle statusHandle);
    static bool onConsoleEvent(std::uint32_t event);

    UninterruptedMutex m_lock;                  // guards m_process
    std::shared_ptr<ServiceProcess> m_process;  // of this program, once it is a service
};

std::shared_ptr<ServiceProcess> EmbeddedServiceManager::process() {
    const std::lock_guard guard(m_lock);
    return m_process;
}

std::shared_ptr<ServiceProcess> EmbeddedServiceManager::processOf(Handle statusHandle) {
    auto process = this->process();
    return process.get() == statusHandle ? process : nullptr;
}

bool EmbeddedServiceManager::onConsoleEvent(std::uint32_t event) {
    const auto process = static_cast<EmbeddedServiceManager&>(platformServiceManager()).process();
    return event == kConsoleControlBreak && process != nullptr && process->requestStop();
}

ErrorCode EmbeddedServiceManager::runDispatcher(const std::string&, ServiceMain main) {
    const Result<std::shared_ptr<ServiceProcess>> process = ServiceProcess::accept();
    if (!process) return process.failure();
    {
        const std::lock_guard guard(m_lock);
        m_process = *process;
    }
    // Without the handler a request to end has its default effect.
    const bool isHandled = addConsoleHandler(onConsoleEvent);
    const ErrorCode error = (*process)->start(main);
    if (error == 0) (*process)->serve();
    if (isHandled) removeConsoleHandler(onConsoleEvent);
    return error;
}

Handle EmbeddedServiceManager::registerControlHandler(const std::string&, ControlHandler handler) {
    const auto process = this->process();
    if (process == nullptr || handler == nullptr) return nullptr;
    process->setHandler(handler);
    return process.get();
}

ErrorCode EmbeddedServiceManager::setStatus(Handle statusHandle, const ServiceStatus& status) {
    const auto process = processOf(statusHandle);
    return process == nullptr ? ErrorCode{errorInvalidHandle} : process->setStatus(status);
}

ErrorCode EmbeddedServiceManager::setFailureText(Handle statusHandle, const std::string& text) {
    const auto process = processOf(statusHandle);
    return process == nullptr ? ErrorCode{errorInvalidHandle} : process->setFailureText(text);
}

ErrorCode EmbeddedServiceManager::openManager(std::uint32_t access, Handle& manager) {
    manager = nullptr;
    Result<std::shared_ptr<const ServiceDatabase>> database = ServiceDatabase::open();
    if (!database) return database.failure();
    manager = newHandle(false, access, std::move(*database), "");
    return 0;
}

ErrorCode EmbeddedServiceManager::enumerateServices(Handle manager, std::vector<ServiceEntry>& services) {
    return withManager(manager, kServiceManagerEnumerate, [&](const OpenHandle& open) -> ErrorCode {
        const Result<std::vector<std::string>> folders = open.folder().folders();
        if (!folders) return folders.failure();
        services.clear();
        for (const std::string& folder : *folders) {
            auto [stored, status, error] = ServiceFiles::inFolder(open.folder(), folder).snapshot();
            // A folder without a configuration is not a service.
            if (error == errorServiceDoesNotExist) continue;
            std::string name = stored.name.empty() ? ServiceFiles::nameOf(folder) : std::move(stored.name);
            services.push_back({std::move(name), std::move(stored.displayName), status, error});
        }
        sortByName(services);
        return 0;
    });
}

ErrorCode EmbeddedServiceManager::createService(Handle manager, const ServiceConfiguration& configuration,
                                                std::uint32_t access, Handle& service) {
    service = nullptr;
    return withManager(manager, kServiceManagerCreateService, [&](const OpenHandle& open) -> ErrorCode {
        if (!isServiceName(configuration.name)) return errorInvalidName;
        StoredService stored;
        static_cast<ServiceConfiguration&>(stored) = configuration;
        if (!isValidService(stored)) return errorInvalidParameter;
        if (const ErrorCode error = createIn(open, stored); error != 0) return error;
        service = newHandle(true, access, open.database, stored.name);
        return 0;
    });
}

ErrorCode EmbeddedServiceManager::openService(Handle manager, const std::string& name, std::uint32_t access,
                                              Handle& service) {
    service = nullptr;
    return withManager(manager, kServiceManagerConnect, [&](const OpenHandle& open) -> ErrorCode {
        if (!isServiceName(name)) return errorInvalidName;
        const ErrorCode error = ServiceFiles(open.folder(), name).read().error();
        // A damaged service can still be queried, stopped and deleted.
        if (error != 0 && error != errorInvalidData) return error;
        service = newHandle(true, access, open.database, name);
        return 0;
    });
}

ErrorCode EmbeddedServiceManager::queryConfiguration(Handle service, ServiceConfiguration& configuration) {
    return withService(service, kServiceQueryConfiguration, [&](const OpenHandle& open) -> ErrorCode {
        Result<StoredService> stored = open.files().read();
        if (stored) configuration = std::move(static_cast<ServiceConfiguration&>(*stored));
        return stored.error();
    });
}

ErrorCode EmbeddedServiceManager::changeConfiguration(Handle service, const ServiceChange& change) {
    return withService(service, kServiceChangeConfiguration, [&](const OpenHandle& open) {
        return updateConfiguration(open, [&](StoredService& stored) {
            if (change.displayName) stored.displayName = *change.displayName;
            if (change.startType) stored.startType = *change.startType;
            if (change.commandLine) stored.commandLine = *change.commandLine;
            if (change.dependencies) stored.dependencies = *change.dependencies;
            if (change.restart) stored.restart = *change.restart;
        });
    });
}

ErrorCode EmbeddedServiceManager::queryDescription(Handle service, WideUnits& description) {
    return withService(service, kServiceQueryConfiguration, [&](const OpenHandle& open) -> ErrorCode {
        const Result<StoredService> stored = open.files().read();
        if (stored) description = toUnits(kCodePageUtf8, stored->description);
        return stored.error();
    });
}

ErrorCode EmbeddedServiceManager::setDescription(Handle service, std::span<const unsigned short> description) {
    return withService(service, kServiceChangeConfiguration, [&](const OpenHandle& open) {
        return updateConfiguration(
            open, [&](StoredService& stored) { stored.description = fromUnits(kCodePageUtf8, description); });
    });
}

ErrorCode EmbeddedServiceManager::startService(Handle service, const std::vector<std::string>& arguments) {
    return withService(service, kServiceStart, [&](const OpenHandle& open) {
        return platform::startService(*open.database, open.name, arguments);
    });
}

ErrorCode EmbeddedServiceManager::endService(Handle service) {
    return withService(service, kServiceStop | kServiceQueryStatus,
                       [](const OpenHandle& open) { return platform::endService(*open.database, open.name); });
}

ErrorCode EmbeddedServiceManager::control(Handle service, std::uint32_t control, ServiceStatus& answer) {
    const std::uint32_t access = accessFor(control);
    return withService(service, access, [&](const OpenHandle& open) -> ErrorCode {
        if (access == 0) return errorInvalidParameter;
        return controlService(*open.database, open.name, control, answer);
    });
}

ErrorCode EmbeddedServiceManager::queryStatus(Handle service, ServiceStatus& status) {
    return withService(service, kServiceQueryStatus, [&](const OpenHandle& open) {
        status = ServiceStatus();
        return store(open.files().status(), status);
    });
}

ErrorCode EmbeddedServiceManager::queryFailureText(Handle service, std::string& text) {
    return withService(service, kServiceQueryStatus, [&](const OpenHandle& open) {
        text.clear();
        return store(open.files().failureText(), text);
    });
}

ErrorCode EmbeddedServiceManager::queryRun(Handle service, ServiceRun& run) {
    return withService(service, kServiceQueryStatus, [&](const OpenHandle& open) {
        run = ServiceRun();
        return store(open.files().run(), run);
    });
}

ErrorCode EmbeddedServiceManager::noteProcessEnd(Handle service, std::uint32_t processId, int exitCode) {
    return withService(service, kServiceStop, [&](const OpenHandle& open) {
        return noteEnd(*open.database, open.name, {.processId = processId, .exitCode = exitCode});
    });
}

ErrorCode EmbeddedServiceManager::openOutput(Handle service, std::unique_ptr<ServiceOutput>& output) {
    return withService(service, kServiceQueryStatus, [&](const OpenHandle& open) -> ErrorCode {
        Result<Folder> folder = open.files().openFolder();
        if (folder) output = std::make_unique<OutputReader>(std::move(*folder));
        return folder.error();
    });
}

std::string EmbeddedServiceManager::location(Handle manager) {
    std::string path;
    if (manager == nullptr) return stateDirectory(path) == errorSuccess ? path + "/services" : std::string();
    withManager(manager, 0, [&](const OpenHandle& open) -> ErrorCode {
        path = open.database->stateDirectory() + "/services";
        return 0;
    });
    return path;
}

ErrorCode EmbeddedServiceManager::deleteService(Handle service) {
    return withService(service, kServiceDelete, deleteIn);
}

// The manager is never destroyed: a service may report while static objects are being destroyed.
union Undestroyed {
    EmbeddedServiceManager manager;
    constexpr Undestroyed() : manager() {}
    ~Undestroyed() {}  // NOLINT(modernize-use-equals-default): a defaulted one would be deleted
};
constinit Undestroyed g_embedded;

}  // namespace

ServiceManager& platformServiceManager() noexcept {
    return g_embedded.manager;
}

}  // namespace KestSupport::platform
