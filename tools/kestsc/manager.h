// The client side of the service manager for one command. Handles have owners, and failures are thrown.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "failure.h"
#include "platform/service_manager.h"

namespace kestsc {

/// An open handle of the service manager. The last owner closes it.
using SharedHandle = std::shared_ptr<void>;

class Manager {
  public:
    /// Connects, to look for services and for what else the access says. This and the other calls throw a Failure with
    /// the caller's task.
    explicit Manager(const Task& task, std::uint32_t furtherAccess = 0);
    /// For tasks that start or stop all services. Fails if the manager is that of the system, which also has the
    /// services of other programs and the system's own.
    static Manager ofOwnServices(const Task& task);

    SharedHandle open(const Task& task, std::uint32_t access) const;
    SharedHandle create(const Task& task, const KestSupport::platform::ServiceConfiguration& configuration,
                        std::uint32_t access) const;

    /// Returns every service, sorted by name.
    std::vector<KestSupport::platform::ServiceEntry> list(const Task& task) const;
    KestSupport::platform::ServiceConfiguration configurationOf(const Task& task) const;

    /// Returns the last run of the service. Without times when they are not known, also for a platform that keeps none.
    KestSupport::platform::ServiceRun runOf(const std::string& service) const;
    /// Returns the folder of the services, or an empty text.
    std::string location() const;

  private:
    SharedHandle m_handle;
};

}  // namespace kestsc
