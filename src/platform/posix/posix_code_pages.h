// The code pages other than UTF-8: the character sets that the environment may name.
#pragma once

#include <cstddef>

namespace KestSupport::platform {

/// Both return the number of units written, 0 when the capacity does not hold the result; see platform/text.h. The code
/// page is one that ansiCodePage gave.
std::size_t widenCharset(unsigned codePage, const char* text, std::size_t length, unsigned short* dest,
                         std::size_t capacity);
std::size_t narrowCharset(unsigned codePage, const unsigned short* text, std::size_t length, char* dest,
                          std::size_t capacity);

}  // namespace KestSupport::platform
