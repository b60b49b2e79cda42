// The path of the running program.
#pragma once

#include <cstddef>
#include <string>

#include "platform/result.h"

namespace KestSupport::platform {

/// Returns the path of the running program, or why it is unknown: errorInsufficientBuffer if the path and its
/// terminator need more than `capacity` characters.
Result<std::string> programPath(std::size_t capacity);

}  // namespace KestSupport::platform
