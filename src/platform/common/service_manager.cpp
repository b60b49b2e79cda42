#include "platform/service_manager.h"

#include <algorithm>
#include <atomic>
#include <utility>

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

std::vector<std::string> dependencyNames(std::string_view dependencies) {
    std::vector<std::string> names;
    while (!dependencies.empty() && dependencies.front() != '\0') {
        const std::string_view name = dependencies.substr(0, dependencies.find('\0'));
        names.emplace_back(name);
        dependencies.remove_prefix(std::min(name.size() + 1, dependencies.size()));
    }
    return names;
}

StartOrder::StartOrder(Find find) : m_find(std::move(find)) {}

// With a stack of its own, since a chain of services may be long.
void StartOrder::add(const std::string& name) {
    enter(name);
    while (!m_path.empty()) {
        Visit& last = m_path.back();
        if (last.next < last.needed.size()) {
            enter(std::string(last.needed[last.next++]));
        } else {
            m_entered[last.name] = Progress::done;
            m_order.push_back(last.name);
            m_path.pop_back();
        }
    }
}

void StartOrder::enter(const std::string& name) {
    const auto [known, isNew] = m_entered.emplace(name, Progress::onPath);
    if (!isNew) {
        if (known->second == Progress::onPath) m_circular = true;
        return;
    }
    Visit visit{name, {}};
    if (m_find(name, visit.needed)) {
        m_path.push_back(std::move(visit));
    } else {
        m_incomplete = true;
        known->second = Progress::done;
    }
}

std::vector<std::string> autoStartOrder(const std::vector<ServiceConfiguration>& services) {
    std::map<std::string, const ServiceConfiguration*> byName;
    for (const ServiceConfiguration& each : services)
        byName.emplace(each.name, &each);
    StartOrder order([&](const std::string& name, std::vector<std::string>& needed) {
        const auto found = byName.find(name);
        if (found != byName.end()) needed = dependencyNames(found->second->dependencies);
        return found != byName.end();
    });
    for (const ServiceConfiguration& each : services) {
        if (each.startType == kServiceAutoStart) order.add(each.name);
    }
    std::vector<std::string> automatic;
    for (const std::string& name : order.order()) {
        if (byName.at(name)->startType == kServiceAutoStart) automatic.push_back(name);
    }
    return automatic;
}

}  // namespace KestSupport::platform
