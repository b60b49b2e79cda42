// What a client asks of a service that is or is to become another process. The calls are described in
// platform/service_manager.h.
#pragma once

#include <string>
#include <vector>

#include "platform/services/database.h"

namespace KestSupport::platform {

ErrorCode startService(const ServiceDatabase& database, const std::string& name,
                       const std::vector<std::string>& arguments);

/// Ends the starts that wait for their programs, and every later one.
void cancelStarts() noexcept;

ErrorCode endService(const ServiceDatabase& database, const std::string& name);

/// Ends the program of a start that has not reached the dispatcher, if there is one: asks it to end, and kills it after
/// a second. `ended`: there was one, and the start is over, or the program has reached the dispatcher after all.
ErrorCode endUnansweredStart(const ServiceDatabase& database, const std::string& name, bool& ended);

ErrorCode controlService(const ServiceDatabase& database, const std::string& name, std::uint32_t control,
                         ServiceStatus& answer);

/// errorCircularDependency when the service, as it is given, depends on itself.
ErrorCode checkDependencies(const ServiceDatabase& database, const StoredService& service);

}  // namespace KestSupport::platform
