// The path of the running program.
#pragma once

#include <cstddef>
#include <string>

#include "platform/result.h"

namespace KestSupport::platform {

/// Returns the path of the running program, or why it is unknown: errorInsufficientBuffer if it is longer than every
/// path that the system's functions take.
Result<std::string> programPath();

}  // namespace KestSupport::platform
