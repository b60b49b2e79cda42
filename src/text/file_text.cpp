#include "text/file_text.h"

#include <algorithm>
#include <cwchar>
#include <iterator>

namespace KestSupport::internal {
namespace {

constexpr unsigned kFirstHighSurrogate = 0xD800;
constexpr unsigned kFirstLowSurrogate = 0xDC00;
constexpr unsigned kEndOfSurrogates = 0xE000;
constexpr unsigned kFirstBeyondBasicPlane = 0x10000;

bool isHighSurrogate(unsigned unit) {
    return unit >= kFirstHighSurrogate && unit < kFirstLowSurrogate;
}
bool isLowSurrogate(unsigned unit) {
    return unit >= kFirstLowSurrogate && unit < kEndOfSurrogates;
}

void appendUnits(wchar_t character, WideText& text) {
    const auto code = static_cast<char32_t>(character);
    if (code < kFirstBeyondBasicPlane) {
        text.push_back(static_cast<unsigned short>(code));
        return;
    }
    const unsigned offset = static_cast<unsigned>(code) - kFirstBeyondBasicPlane;
    text.push_back(static_cast<unsigned short>(kFirstHighSurrogate + (offset >> 10)));
    text.push_back(static_cast<unsigned short>(kFirstLowSurrogate + (offset & 0x3FF)));
}

// The wide characters of UTF-16; false for a surrogate without its partner. Where a wide character is a 16-bit unit,
// the pairs stay as they are.
bool toWideCharacters(WideView text, std::wstring& characters) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        unsigned code = text[i];
        if (sizeof(wchar_t) > 2 && code >= kFirstHighSurrogate && code < kEndOfSurrogates) {
            if (!isHighSurrogate(code) || i + 1 == text.size() || !isLowSurrogate(text[i + 1])) return false;
            const unsigned low = text[++i];
            code = kFirstBeyondBasicPlane + ((code - kFirstHighSurrogate) << 10) + (low - kFirstLowSurrogate);
        }
        characters.push_back(static_cast<wchar_t>(code));
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
        appendUnits(character, text);
        bytes.remove_prefix(length);
    }
}

// The length of the character that the bytes begin with; 0, and `character` untouched, when they begin with none. Asked
// for more than one character, the facet would swallow an incomplete one at the end.
std::size_t FileText::firstCharacter(std::string_view bytes, wchar_t& character) const {
    const auto longest = static_cast<std::size_t>(m_conversion->max_length());
    for (std::size_t length = 1; length <= std::min(longest, bytes.size()); ++length) {
        std::mbstate_t state{};
        const char* next = nullptr;
        wchar_t converted = 0;
        wchar_t* end = nullptr;
        m_conversion->in(state, bytes.data(), bytes.data() + length, next, &converted, &converted + 1, end);
        if (end == &converted) continue;
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
