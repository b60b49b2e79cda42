// Describes an exception of any type, for a log record.
#pragma once

#include <string>

namespace KestSupport::internal {

/// Describes the current exception. For catch clauses only.
std::string describeException();

}  // namespace KestSupport::internal
