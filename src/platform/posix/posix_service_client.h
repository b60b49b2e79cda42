// What a client asks of a service that is or is to become another process. The calls are described in
// platform/service_manager.h.
#pragma once

#include <string>
#include <vector>

#include "platform/posix/posix_service_database.h"

namespace KestSupport::platform {

ErrorCode startService(const ServiceDatabase& database, const std::string& name,
                       const std::vector<std::string>& arguments);

ErrorCode controlService(const ServiceDatabase& database, const std::string& name, std::uint32_t control,
                         ServiceStatus& answer);

/// errorCircularDependency when the service, as it is given, depends on itself.
ErrorCode checkDependencies(const ServiceDatabase& database, const StoredService& service);

}  // namespace KestSupport::platform
