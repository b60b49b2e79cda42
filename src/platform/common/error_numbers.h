// Rows of the table of error numbers.
#pragma once

#include <span>

#include "platform/error.h"

namespace KestSupport::platform {

struct ErrorNumber {
    ErrorCode code;
    int errnoValue;
};

/// Back end: the rows that are this system's alone. They count after the common ones.
std::span<const ErrorNumber> systemErrorNumbers() noexcept;

}  // namespace KestSupport::platform
