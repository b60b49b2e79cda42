// One life of a service under the manager, from its start to its final report.
#pragma once

#include <cstdint>
#include <string>

#include "support/service.h"

namespace KestSupport::internal {

inline constexpr std::uint32_t kServiceWaitHint = 3000;  ///< milliseconds within which the next report follows

/// Runs startIt on a thread of its own and reports while it runs. Returns when startIt has returned and its result has
/// been reported. Another thread stops the service later.
void runService(KestService& service, const std::string& arguments);

}  // namespace KestSupport::internal
