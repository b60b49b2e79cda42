#include "platform/start_order.h"

#include <utility>

namespace KestSupport::platform {

StartOrder::StartOrder(Find find) : m_find(std::move(find)) {}

// An explicit stack instead of recursion, since a chain of services may be long.
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
