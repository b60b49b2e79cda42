#include "platform/service_manager.h"

#include <algorithm>
#include <atomic>

#include "platform/common/ascii_words.h"

namespace KestSupport::platform {
namespace {

std::atomic<ServiceManager*> g_replacement{nullptr};

}  // namespace

ServiceManager& serviceManager() noexcept {
    ServiceManager* const replacement = g_replacement.load(std::memory_order_acquire);
    return replacement != nullptr ? *replacement : platformServiceManager();
}

void setServiceManager(ServiceManager* manager) noexcept {
    g_replacement.store(manager, std::memory_order_release);
}

bool isServiceName(std::string_view name) noexcept {
    return !name.empty() && name.size() <= kLongestServiceName && std::none_of(name.begin(), name.end(), [](char each) {
        return isAsciiControl(each) || each == '/' || each == '\\';
    });
}

void sortByName(std::vector<ServiceEntry>& services) {
    std::sort(services.begin(), services.end(),
              [](const ServiceEntry& one, const ServiceEntry& other) { return one.name < other.name; });
}

std::vector<std::string> dependencyNames(std::string_view dependencies) {
    std::vector<std::string> names;
    while (!dependencies.empty() && dependencies.front() != '\0') {
        const std::string_view name = dependencies.substr(0, dependencies.find('\0'));
        names.emplace_back(name);
        dependencies.remove_prefix(std::min(name.size() + 1, dependencies.size()));
    }
    return names;
}

}  // namespace KestSupport::platform
