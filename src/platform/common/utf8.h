// UTF-8 to and from UTF-16, for the text contract.
#pragma once

#include <cstddef>

namespace KestSupport::platform {

/// Replaces a part of a text that is not valid.
inline constexpr unsigned short kReplacementUnit = 0xFFFD;

/// Both return the number of units written, or 0 if the capacity does not hold the result; see platform/text.h.
std::size_t widenUtf8(const char* text, std::size_t length, unsigned short* dest, std::size_t capacity) noexcept;
std::size_t narrowUtf8(const unsigned short* text, std::size_t length, char* dest, std::size_t capacity) noexcept;

}  // namespace KestSupport::platform
