// How wide text stands in a file of 8-bit text: by the conversion of the global locale, as the standard library's wide
// file streams have it. The classic locale takes a byte for the unit of the same value; its own conversion would stop
// at 0x7F.
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

/// What a file of UTF-16 little-endian begins with.
inline constexpr std::string_view kUtf16Mark = "\xFF\xFE";

/// The conversion of the locale that was global when the object was made.
class FileText {
  public:
    FileText();

    /// Replaces `text` by the converted bytes. A byte that does not convert becomes the unit of the same value.
    void widen(std::string_view bytes, WideText& text) const;

    /// Appends the converted text to `bytes`; false when some of it has no 8-bit form (`bytes` may then hold a part).
    bool narrow(WideView text, std::string& bytes) const;

  private:
    using Conversion = std::codecvt<wchar_t, char, std::mbstate_t>;

    std::size_t firstCharacter(std::string_view bytes, wchar_t& character) const;

    const std::locale m_locale;
    const Conversion* m_conversion = nullptr;  // held by m_locale; null for the classic one
};

}  // namespace KestSupport::internal
