// Converts between the wide characters of the C and C++ runtimes and 16-bit units. A wide character of more than 16
// bits can be a pair of surrogates in units. A wide character of 16 bits is one unit.
#pragma once

#include <cstddef>

#include "platform/common/surrogates.h"
#include "support/strings.h"

namespace KestSupport::internal {

/// Writes the units of a character and returns their number. Returns 0 for a value that is no Unicode character; some
/// runtimes read such values from UTF-8.
inline std::size_t unitsOf(wchar_t character, unsigned short (&units)[2]) {
    const auto code = static_cast<char32_t>(character);
    return code > platform::kLastCharacter ? 0 : platform::writeUnits(code, units);
}

/// Reads the first character of a text that is not empty, and returns the number of its units. Returns 0 for a
/// surrogate without its partner.
inline std::size_t characterOf(basic_text_view<unsigned short> text, wchar_t& character) {
    char32_t code = text[0];
    std::size_t units = 1;
    if (sizeof(wchar_t) > sizeof(unsigned short) && platform::isSurrogate(code)) {
        const char32_t low = text.size() > 1 ? text[1] : 0;
        if (!platform::isHighSurrogate(code) || !platform::isLowSurrogate(low)) return 0;
        code = platform::characterOfPair(code, low);
        units = 2;
    }
    character = static_cast<wchar_t>(code);
    return units;
}

}  // namespace KestSupport::internal
