// The order in which services can be started.
//
//   StartOrder        orders services by any source of dependencies
//   autoStartOrder    orders the configurations that start automatically
//
// Threads: a StartOrder is used by one thread at a time.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "platform/service_manager.h"

namespace KestSupport::platform {

/// Orders services so that each one follows those that it depends on.
class StartOrder {
  public:
    /// Stores the names that a service depends on. Returns false when there is no such service.
    using Find = std::function<bool(const std::string& name, std::vector<std::string>& needed)>;
    explicit StartOrder(Find find);

    /// Appends the services that this one depends on, and then this one, each only once.
    void add(const std::string& name);

    const std::vector<std::string>& order() const { return m_order; }
    bool isCircular() const { return m_circular; }      ///< services that were added depend on each other
    bool isIncomplete() const { return m_incomplete; }  ///< one of them does not exist

  private:
    enum class Progress { onPath, done };
    struct Visit {
        std::string name;
        std::vector<std::string> needed;
        std::size_t next = 0;
    };
    void enter(const std::string& name);

    const Find m_find;
    std::map<std::string, Progress> m_entered;
    std::vector<Visit> m_path;
    std::vector<std::string> m_order;
    bool m_circular = false;
    bool m_incomplete = false;
};

/// Returns the services with automatic start, each after those that it depends on, and otherwise in the given order.
/// Includes services that depend on each other in a circle; starting one of them fails.
std::vector<std::string> autoStartOrder(const std::vector<ServiceConfiguration>& services);

}  // namespace KestSupport::platform
