// Where the running program lies.
#pragma once

#include <cstddef>
#include <string>

#include "platform/error.h"

namespace KestSupport::platform {

/// Sets `path` to the running program's path. 0, or the platform's error number: 122 when the path does not fit into
/// `capacity` characters, its terminator included.
ErrorCode programPath(std::size_t capacity, std::string& path);

}  // namespace KestSupport::platform
