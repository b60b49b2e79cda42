// The service manager's client side for one command: handles that close themselves, failures that are thrown.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "failure.h"
#include "platform/service_manager.h"

namespace kestsc {

/// An open handle of the service manager, closed with its last owner.
using SharedHandle = std::shared_ptr<void>;

class Manager {
  public:
    /// Connects. Throws a Failure, as everything here, with the task that the caller names.
    explicit Manager(const Task& task);

    SharedHandle open(const Task& task, std::uint32_t access) const;
    SharedHandle create(const Task& task, const KestSupport::platform::ServiceConfiguration& configuration,
                        std::uint32_t access) const;

    /// Every service, in the order of the names.
    std::vector<KestSupport::platform::ServiceEntry> list(const Task& task) const;
    KestSupport::platform::ServiceConfiguration configurationOf(const Task& task) const;

  private:
    SharedHandle m_handle;
};

}  // namespace kestsc
