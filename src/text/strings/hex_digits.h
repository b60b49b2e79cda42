// Hexadecimal digits in upper case.
#pragma once

namespace KestSupport::internal {

/// The digit of a value from 0 to 15. Without a table, so that the compiler can make vector code of it.
constexpr char upperHexDigit(unsigned value) noexcept {
    return static_cast<char>(value + (value < 10 ? '0' : 'A' - 10));
}

}  // namespace KestSupport::internal
