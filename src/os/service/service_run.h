// One run of a service under the manager, from its start to its final report.
#pragma once

#include <cstdint>
#include <string>

#include "support/service.h"

namespace KestSupport::internal {

inline constexpr std::uint32_t kServiceWaitHint = 3000;  ///< milliseconds until the next report at the latest

/// Runs startIt on another thread and reports while it runs. Returns when the result of startIt is reported, or when
/// the service was stopped before that. A third thread stops the service later.
void runService(KestService& service, const std::string& arguments);

}  // namespace KestSupport::internal
