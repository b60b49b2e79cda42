#include "manager.h"

#include <utility>

#include "words.h"

namespace kestsc {
namespace {

namespace platform = KestSupport::platform;

// Returns an owner of the handle that the call stores. Throws a Failure when the call fails.
template <typename Open>
SharedHandle owned(const Task& task, Open open) {
    platform::ServiceManager& services = platform::serviceManager();
    void* handle = nullptr;
    require(task, open(services, handle));
    return {handle, [&services](void* opened) { services.closeHandle(opened); }};
}

// The failure names the folder in which the manager keeps the services: another user may have services elsewhere.
void requireAccess(const Task& task, ErrorCode error) {
    const std::string place = platform::serviceManager().location(nullptr);
    if (error != platform::errorAccessDenied || place.empty()) return require(task, error);
    throw Failure(task, error, errorText(error) + ": " + place);
}

[[noreturn]] void failForName(platform::ServiceManager& services, void* manager, const Task& task) {
    std::vector<platform::ServiceEntry> entries;
    std::vector<std::string> names;
    if (services.enumerateServices(manager, entries) != 0) entries.clear();
    for (platform::ServiceEntry& entry : entries)
        names.push_back(std::move(entry.name));
    constexpr ErrorCode kError = platform::errorServiceDoesNotExist;
    throw Failure(task, kError, errorText(kError) + suggestionFor(task.service, names));
}

SharedHandle openManager(const Task& task, std::uint32_t furtherAccess) {
    const std::uint32_t access = platform::kServiceManagerConnect | platform::kServiceManagerEnumerate | furtherAccess;
    platform::ServiceManager& services = platform::serviceManager();
    void* handle = nullptr;
    requireAccess(task, services.openManager(access, handle));
    return {handle, [&services](void* opened) { services.closeHandle(opened); }};
}

}  // namespace

Manager::Manager(const Task& task, std::uint32_t furtherAccess) : m_handle(openManager(task, furtherAccess)) {}

Manager Manager::ofOwnServices(const Task& task) {
    Manager manager(task);
    if (manager.location().empty()) throw Failure(task, platform::errorCallNotImplemented);
    return manager;
}

SharedHandle Manager::open(const Task& task, std::uint32_t access) const {
    return owned(task, [&](platform::ServiceManager& services, void*& handle) {
        const ErrorCode error = services.openService(m_handle.get(), task.service, access, handle);
        if (error == platform::errorServiceDoesNotExist) failForName(services, m_handle.get(), task);
        return error;
    });
}

SharedHandle Manager::create(const Task& task, const platform::ServiceConfiguration& configuration,
                             std::uint32_t access) const {
    return owned(task, [&](platform::ServiceManager& services, void*& handle) {
        return services.createService(m_handle.get(), configuration, access, handle);
    });
}

std::vector<platform::ServiceEntry> Manager::list(const Task& task) const {
    std::vector<platform::ServiceEntry> services;
    requireAccess(task, platform::serviceManager().enumerateServices(m_handle.get(), services));
    return services;
}

platform::ServiceRun Manager::runOf(const std::string& service) const {
    platform::ServiceRun run;
    try {
        const SharedHandle handle = open({"status", service}, platform::kServiceQueryStatus);
        if (platform::serviceManager().queryRun(handle.get(), run) != 0) run = {};
    } catch (const Failure&) {
        run = {};
    }
    return run;
}

std::string Manager::location() const {
    return platform::serviceManager().location(m_handle.get());
}

platform::ServiceConfiguration Manager::configurationOf(const Task& task) const {
    const SharedHandle service = open(task, platform::kServiceQueryConfiguration);
    platform::ServiceConfiguration configuration;
    require(task, platform::serviceManager().queryConfiguration(service.get(), configuration));
    return configuration;
}

}  // namespace kestsc
