// Calls of a client to a service, which is another process. platform/service_manager.h describes them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/services/database.h"

namespace KestSupport::platform {

ErrorCode startService(const ServiceDatabase& database, const std::string& name,
                       const std::vector<std::string>& arguments);

/// Ends the starts that wait for their programs, and all later ones.
void cancelStarts() noexcept;

ErrorCode endService(const ServiceDatabase& database, const std::string& name);

/// Completes the record of the last run, if it is that of the process and no new one has begun.
ErrorCode noteEnd(const ServiceDatabase& database, const std::string& name, const ServiceRun& end);

/// Ends the program of a start that has not reached the dispatcher: asks it to end, and kills it after a second.
/// Returns false when there was none. After true the start is over, or the program has reached the dispatcher.
Result<bool> endUnansweredStart(const ServiceDatabase& database, const std::string& name);

ErrorCode controlService(const ServiceDatabase& database, const std::string& name, std::uint32_t control,
                         ServiceStatus& answer);

/// errorCircularDependency when the service, with the given configuration, depends on itself.
ErrorCode checkDependencies(const ServiceDatabase& database, const StoredService& service);

/// The time that a service has to reach the dispatcher and to answer a control, in milliseconds:
/// $KEST_SERVICE_TIMEOUT, or 30 seconds.
std::uint32_t serviceTimeout();

}  // namespace KestSupport::platform
