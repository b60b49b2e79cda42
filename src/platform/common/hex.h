// The digits of hexadecimal numbers.
#pragma once

#include <string_view>

namespace KestSupport::platform {

inline constexpr std::string_view kHexDigits = "0123456789abcdef";

}  // namespace KestSupport::platform
