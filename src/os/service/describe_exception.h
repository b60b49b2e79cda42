// The text of an exception of any type, for a record in the log.
#pragma once

#include <string>

namespace KestSupport::internal {

/// Describes the exception that is being handled. Only inside a catch clause.
std::string describeException();

}  // namespace KestSupport::internal
