// The rows of the table of error numbers.
#pragma once

#include <span>

#include "platform/error.h"

namespace KestSupport::platform {

struct ErrorNumber {
    ErrorCode code;
    int errnoValue;
};

/// Back end: returns the rows of this system. They follow the common ones.
std::span<const ErrorNumber> systemErrorNumbers() noexcept;

}  // namespace KestSupport::platform
