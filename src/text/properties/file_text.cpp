#include "text/properties/file_text.h"

#include <algorithm>
#include <cwchar>
#include <iterator>

#include "platform/common/surrogates.h"
#include "text/strings/wide_characters.h"

namespace KestSupport::internal {
namespace {

// Returns false if a surrogate has no partner.
bool toWideCharacters(WideView text, std::wstring& characters) {
    while (!text.empty()) {
        wchar_t character = 0;
        const std::size_t units = characterOf(text, character);
        if (units == 0) return false;
        characters.push_back(character);
        text.remove_prefix(units);
    }
    return true;
}

}  // namespace

FileText::FileText() {
    if (m_locale != std::locale::classic()) m_conversion = &std::use_facet<Conversion>(m_locale);
}

void FileText::widen(std::string_view bytes, WideText& text) const {
    if (m_conversion == nullptr) {
        text.resize(bytes.size());
        std::transform(bytes.begin(), bytes.end(), text.begin(), [](char c) { return static_cast<unsigned char>(c); });
        return;
    }
    text.clear();
    while (!bytes.empty()) {
        wchar_t character = static_cast<unsigned char>(bytes.front());
        const std::size_t length = std::max<std::size_t>(1, firstCharacter(bytes, character));
        unsigned short units[2];
        text.append(units, unitsOf(character, units));
        bytes.remove_prefix(length);
    }
}

// Returns the length of the first character; 0, with `character` unchanged, if the bytes begin with no character. The
// facet converts one character at a time, because it would drop an incomplete character at the end of a longer text.
std::size_t FileText::firstCharacter(std::string_view bytes, wchar_t& character) const {
    const auto longest = static_cast<std::size_t>(m_conversion->max_length());
    for (std::size_t length = 1; length <= std::min(longest, bytes.size()); ++length) {
        std::mbstate_t state{};
        const char* next = nullptr;
        wchar_t converted = 0;
        wchar_t* end = nullptr;
        m_conversion->in(state, bytes.data(), bytes.data() + length, next, &converted, &converted + 1, end);
        if (end == &converted) continue;
        if (static_cast<char32_t>(converted) > platform::kLastCharacter) return 0;
        character = converted;
        return length;
    }
    return 0;
}

bool FileText::narrow(WideView text, std::string& bytes) const {
    if (m_conversion == nullptr) {
        if (std::any_of(text.begin(), text.end(), [](unsigned short unit) { return unit > 0xFF; })) return false;
        std::transform(text.begin(), text.end(), std::back_inserter(bytes),
                       [](auto unit) { return static_cast<char>(unit); });
        return true;
    }
    std::wstring characters;
    if (!toWideCharacters(text, characters)) return false;
    const wchar_t* from = characters.data();
    const wchar_t* const end = from + characters.size();
    std::mbstate_t state{};
    while (from != end) {
        char block[256];
        const wchar_t* next = from;
        char* blockEnd = block;
        const auto result = m_conversion->out(state, from, end, next, block, block + std::size(block), blockEnd);
        if (result == std::codecvt_base::error || (next == from && blockEnd == block)) return false;
        bytes.append(block, blockEnd);
        from = next;
    }
    return true;
}

}  // namespace KestSupport::internal
