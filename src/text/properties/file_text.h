// Converts wide text to and from the bytes of an 8-bit file, by the global locale, as the wide file streams of the
// standard library do. In the classic locale a byte is the unit of the same value; the conversion of that locale itself
// stops at 0x7F.
#pragma once

#include <cstddef>
#include <cwchar>
#include <locale>
#include <string>
#include <string_view>

#include "support/strings.h"

namespace KestSupport::internal {

using WideView = basic_text_view<unsigned short>;
using WideText = wstring16;

/// The byte-order mark of UTF-16 little-endian.
inline constexpr std::string_view kUtf16Mark = "\xFF\xFE";

/// Converts by the locale that was global when the object was constructed.
class FileText {
  public:
    FileText();

    /// Replaces `text` with the converted bytes. A byte that does not convert becomes the unit of the same value.
    void widen(std::string_view bytes, WideText& text) const;

    /// Appends the converted text to `bytes`. Returns false if a part has no 8-bit form; `bytes` may then hold a part.
    bool narrow(WideView text, std::string& bytes) const;

  private:
    using Conversion = std::codecvt<wchar_t, char, std::mbstate_t>;

    std::size_t firstCharacter(std::string_view bytes, wchar_t& character) const;

    const std::locale m_locale;
    const Conversion* m_conversion = nullptr;  // owned by m_locale; null for the classic locale
};

}  // namespace KestSupport::internal
