// Rows of the table of error numbers.
#pragma once

#include <span>

#include "platform/error.h"

namespace KestSupport::platform {

struct ErrorNumber {
    ErrorCode code;
    int errnoValue;
};

/// Back end: the errno values of this system alone, with codes that the common rows have too.
std::span<const ErrorNumber> systemErrorNumbers() noexcept;

}  // namespace KestSupport::platform
