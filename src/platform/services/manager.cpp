// The embedded service manager: there is no process of its own. Services are files (database.h), a
// service that runs is a process (process.h), and clients look at the one and talk to the other
// (client.h).
#include <algorithm>
#include <memory>
#include <mutex>

#include "platform/console.h"
#include "platform/services/client.h"
#include "platform/services/database.h"
#include "platform/services/process.h"
#include "platform/service_manager.h"
#include "platform/text.h"
#include "platform/uninterrupted.h"

namespace KestSupport::platform {
namespace {

using Handle = ServiceManager::Handle;

struct OpenHandle {
    bool isService;
    std::uint32_t access;
    std::shared_ptr<const ServiceDatabase> database;
    std::string name;

    int folder() const { return database->folder(); }
    ServiceFiles files() const { return {folder(), name}; }
};

ErrorCode checkHandle(Handle handle, bool isService, std::uint32_t access, const OpenHandle*& open) {
    open = static_cast<const OpenHandle*>(handle);
    if (open == nullptr || open->isService != isService) return errorInvalidHandle;
    return (open->access & access) == access ? errorSuccess : errorAccessDenied;
}

ErrorCode checkService(Handle handle, std::uint32_t access, const OpenHandle*& open) {
    return checkHandle(handle, true, access, open);
}

Handle newHandle(bool isService, std::uint32_t access, std::shared_ptr<const ServiceDatabase> database,
                 const std::string& name) {
    return std::make_unique<OpenHandle>(OpenHandle{isService, access, std::move(database), name}).release();
}

// The right that a control asks for; 0 for a number that is no control.
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

std::string toUtf8(const wstring16& text) {
    constexpr std::size_t longest = 3;  // bytes of one unit
    std::string bytes(text.size() * longest, '\0');
    bytes.resize(narrowText(codePageUtf8, text.data(), text.size(), bytes.data(), bytes.size()));
    return bytes;
}

wstring16 fromUtf8(const std::string& bytes) {
    wstring16 text(bytes.size(), 0);
    text.resize(widenText(codePageUtf8, bytes.data(), bytes.size(), text.data(), text.size()));
    return text;
}

// Reads the configuration, changes it, and puts it back.
template <typename Change>
ErrorCode update(const OpenHandle& service, Change change) {
    DatabaseLock lock;
    if (const ErrorCode error = lock.take(service.folder()); error != 0) return error;
    StoredService stored;
    if (const ErrorCode error = service.files().read(stored); error != 0) return error;
    if (stored.deleted) return errorServiceMarkedForDelete;
    change(stored);
    if (!isValidService(stored)) return errorInvalidParameter;
    if (const ErrorCode error = checkDependencies(*service.database, stored); error != 0) return error;
    return service.files().replace(stored);
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
    ErrorCode queryDescription(Handle service, wstring16& description) override;
    ErrorCode setDescription(Handle service, const wstring16& description) override;
    ErrorCode startService(Handle service, const std::vector<std::string>& arguments) override;
    void cancelStarts() noexcept override { platform::cancelStarts(); }
    ErrorCode endService(Handle service) override;
    ErrorCode control(Handle service, std::uint32_t control, ServiceStatus& answer) override;
    ErrorCode queryStatus(Handle service, ServiceStatus& status) override;
    ErrorCode queryFailureText(Handle service, std::string& text) override;
    ErrorCode deleteService(Handle service) override;
    void closeHandle(Handle handle) override {
        const std::unique_ptr<OpenHandle> closed(static_cast<OpenHandle*>(handle));
    }

  private:
    std::shared_ptr<ServiceProcess> process();
    static bool onConsoleEvent(std::uint32_t event);

    UninterruptedMutex m_lock;                  // guards m_process
    std::shared_ptr<ServiceProcess> m_process;  // of this program, once it is a service
};

std::shared_ptr<ServiceProcess> EmbeddedServiceManager::process() {
    const std::lock_guard guard(m_lock);
    return m_process;
}

bool EmbeddedServiceManager::onConsoleEvent(std::uint32_t event) {
    const auto process = static_cast<EmbeddedServiceManager&>(platformServiceManager()).process();
    return event == kConsoleControlBreak && process != nullptr && process->requestStop();
}

ErrorCode EmbeddedServiceManager::runDispatcher(const std::string&, ServiceMain main) {
    std::shared_ptr<ServiceProcess> process;
    if (const ErrorCode error = ServiceProcess::accept(process); error != 0) return error;
    {
        const std::lock_guard guard(m_lock);
        m_process = process;
    }
    // Without it a request to end has the effect that it has on any process.
    const bool heard = addConsoleHandler(onConsoleEvent);
    const ErrorCode error = process->start(main);
    if (error == 0) process->serve();
    if (heard) removeConsoleHandler(onConsoleEvent);
    return error;
}

Handle EmbeddedServiceManager::registerControlHandler(const std::string&, ControlHandler handler) {
    const auto process = this->process();
    if (process == nullptr || handler == nullptr) return nullptr;
    process->setHandler(handler);
    return process.get();
}

ErrorCode EmbeddedServiceManager::setStatus(Handle statusHandle, const ServiceStatus& status) {
    const auto process = this->process();
    if (process == nullptr || process.get() != statusHandle) return errorInvalidHandle;
    return process->setStatus(status);
}

ErrorCode EmbeddedServiceManager::setFailureText(Handle statusHandle, const std::string& text) {
    const auto process = this->process();
    if (process == nullptr || process.get() != statusHandle) return errorInvalidHandle;
    return process->setFailureText(text);
}

ErrorCode EmbeddedServiceManager::openManager(std::uint32_t access, Handle& manager) {
    manager = nullptr;
    std::shared_ptr<const ServiceDatabase> database;
    if (const ErrorCode error = ServiceDatabase::open(database); error != 0) return error;
    manager = newHandle(false, access, std::move(database), "");
    return 0;
}

ErrorCode EmbeddedServiceManager::enumerateServices(Handle manager, std::vector<ServiceEntry>& services) {
    const OpenHandle* open = nullptr;
    if (const ErrorCode error = checkHandle(manager, false, kServiceManagerEnumerate, open); error != 0) return error;
    std::vector<std::string> folders;
    if (const ErrorCode error = open->database->list(folders); error != 0) return error;
    services.clear();
    for (const std::string& folder : folders) {
        const ServiceFiles files = ServiceFiles::inFolder(open->folder(), folder);
        StoredService stored;
        ServiceEntry entry;
        entry.error = files.readWithStatus(stored, entry.status);
        // Also what has come among the services and is none of them.
        if (entry.error == errorServiceDoesNotExist) continue;
        entry.name = stored.name.empty() ? ServiceFiles::nameOf(folder) : std::move(stored.name);
        entry.displayName = std::move(stored.displayName);
        services.push_back(std::move(entry));
    }
    std::sort(services.begin(), services.end(),
              [](const ServiceEntry& one, const ServiceEntry& other) { return one.name < other.name; });
    return 0;
}

ErrorCode EmbeddedServiceManager::createService(Handle manager, const ServiceConfiguration& configuration,
                                                std::uint32_t access, Handle& service) {
    service = nullptr;
    const OpenHandle* open = nullptr;
    if (const ErrorCode error = checkHandle(manager, false, kServiceManagerCreateService, open); error != 0) {
        return error;
    }
    if (!isServiceName(configuration.name)) return errorInvalidName;
    StoredService stored;
    static_cast<ServiceConfiguration&>(stored) = configuration;
    if (!isValidService(stored)) return errorInvalidParameter;
    DatabaseLock lock;
    if (const ErrorCode error = lock.take(open->folder()); error != 0) return error;
    const ServiceFiles files(open->folder(), stored.name);
    StoredService present;
    if (const ErrorCode error = files.read(present); error == 0) {
        return present.deleted ? errorServiceMarkedForDelete : errorServiceExists;
    } else if (error != errorServiceDoesNotExist) {
        return error;
    }
    if (const ErrorCode error = checkDependencies(*open->database, stored); error != 0) return error;
    bool active = false;
    if (const ErrorCode error = files.isActive(active); error != 0) return error;
    if (active) return errorServiceMarkedForDelete;
    // What a service of this name left behind tells nothing about the new one.
    files.remove();
    if (const ErrorCode error = files.replace(stored); error != 0) return error;
    service = newHandle(true, access, open->database, stored.name);
    return 0;
}

ErrorCode EmbeddedServiceManager::openService(Handle manager, const std::string& name, std::uint32_t access,
                                              Handle& service) {
    service = nullptr;
    const OpenHandle* open = nullptr;
    if (const ErrorCode error = checkHandle(manager, false, kServiceManagerConnect, open); error != 0) return error;
    if (!isServiceName(name)) return errorInvalidName;
    StoredService stored;
    const ErrorCode error = ServiceFiles(open->folder(), name).read(stored);
    // A damaged one can still be looked at, stopped and deleted.
    if (error != 0 && error != errorInvalidData) return error;
    service = newHandle(true, access, open->database, name);
    return 0;
}

ErrorCode EmbeddedServiceManager::queryConfiguration(Handle service, ServiceConfiguration& configuration) {
    const OpenHandle* open = nullptr;
    if (const ErrorCode error = checkService(service, kServiceQueryConfiguration, open); error != 0) return error;
    StoredService stored;
    if (const ErrorCode error = open->files().read(stored); error != 0) return error;
    configuration = std::move(static_cast<ServiceConfiguration&>(stored));
    return 0;
}

ErrorCode EmbeddedServiceManager::changeConfiguration(Handle service, const ServiceChange& change) {
    const OpenHandle* open = nullptr;
    if (const ErrorCode error = checkService(service, kServiceChangeConfiguration, open); error != 0) return error;
    return update(*open, [&](StoredService& stored) {
        if (change.displayName) stored.displayName = *change.displayName;
        if (change.startType) stored.startType = *change.startType;
        if (change.commandLine) stored.commandLine = *change.commandLine;
        if (change.dependencies) stored.dependencies = *change.dependencies;
    });
}

ErrorCode EmbeddedServiceManager::queryDescription(Handle service, wstring16& description) {
    const OpenHandle* open = nullptr;
    if (const ErrorCode error = checkService(service, kServiceQueryConfiguration, open); error != 0) return error;
    StoredService stored;
    if (const ErrorCode error = open->files().read(stored); error != 0) return error;
    description = fromUtf8(stored.description);
    return 0;
}

ErrorCode EmbeddedServiceManager::setDescription(Handle service, const wstring16& description) {
    const OpenHandle* open = nullptr;
    if (const ErrorCode error = checkService(service, kServiceChangeConfiguration, open); error != 0) return error;
    return update(*open, [&](StoredService& stored) { stored.description = toUtf8(description); });
}

ErrorCode EmbeddedServiceManager::startService(Handle service, const std::vector<std::string>& arguments) {
    const OpenHandle* open = nullptr;
    if (const ErrorCode error = checkService(service, kServiceStart, open); error != 0) return error;
    return platform::startService(*open->database, open->name, arguments);
}

ErrorCode EmbeddedServiceManager::control(Handle service, std::uint32_t control, ServiceStatus& answer) {
    const std::uint32_t access = accessFor(control);
    if (access == 0) return errorInvalidParameter;
    const OpenHandle* open = nullptr;
    if (const ErrorCode error = checkService(service, access, open); error != 0) return error;
    return controlService(*open->database, open->name, control, answer);
}

ErrorCode EmbeddedServiceManager::queryStatus(Handle service, ServiceStatus& status) {
    const OpenHandle* open = nullptr;
    if (const ErrorCode error = checkService(service, kServiceQueryStatus, open); error != 0) return error;
    return open->files().status(status);
}

ErrorCode EmbeddedServiceManager::endService(Handle service) {
    const OpenHandle* open = nullptr;
    if (const ErrorCode error = checkService(service, kServiceStop, open); error != 0) return error;
    return platform::endService(*open->database, open->name);
}

ErrorCode EmbeddedServiceManager::queryFailureText(Handle service, std::string& text) {
    const OpenHandle* open = nullptr;
    if (const ErrorCode error = checkService(service, kServiceQueryStatus, open); error != 0) return error;
    return open->files().failureText(text);
}

ErrorCode EmbeddedServiceManager::deleteService(Handle service) {
    const OpenHandle* open = nullptr;
    if (const ErrorCode error = checkService(service, kServiceDelete, open); error != 0) return error;
    DatabaseLock lock;
    if (const ErrorCode error = lock.take(open->folder()); error != 0) return error;
    const ServiceFiles files = open->files();
    StoredService stored;
    const ErrorCode unreadable = files.read(stored);
    if (unreadable != 0 && unreadable != errorInvalidData) return unreadable;
    if (stored.deleted) return errorServiceMarkedForDelete;
    bool active = false;
    const ErrorCode unknown = files.isActive(active);
    if (unknown != 0 && unknown != errorInvalidData) return unknown;
    if (!active) return files.remove();
    if (unreadable != 0) return unreadable;
    stored.deleted = true;
    return files.replace(stored);
}

// The manager is never destroyed: a service may report while static objects are being destroyed.
union Place {
    EmbeddedServiceManager manager;
    constexpr Place() : manager() {}
    ~Place() {}  // NOLINT(modernize-use-equals-default): a defaulted one would be deleted
};
constinit Place g_place;

}  // namespace

ServiceManager& platformServiceManager() noexcept {
    return g_place.manager;
}

}  // namespace KestSupport::platform
