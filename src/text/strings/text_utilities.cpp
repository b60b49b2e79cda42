#include "support/text_utilities.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <string_view>
#include <type_traits>
#include <utility>

#include "text/strings/command_line_splitter.h"
#include "text/strings/hex_digits.h"
#include "text/strings/wide_characters.h"

namespace KestSupport {
namespace {

using WideView = internal::basic_text_view<unsigned short>;

constexpr internal::CommandLineRules kSpacesAndDoubleQuotes{" ", "\"", false, false};

bool fits(const std::string& text, const void* buffer, int size) {
    return buffer != nullptr && text.size() < static_cast<std::size_t>(size);
}

// Locales of single bytes have bytes without a character; in "C" these are all from 0x80 on. Some C runtimes read them
// as the character of the same value, others refuse them.
bool isByteWithoutCharacter(unsigned value) {
    return MB_CUR_MAX == 1 && value <= UCHAR_MAX && std::btowc(static_cast<int>(value)) == WEOF;
}

// Converts the first character of a text that is not empty. Returns the number of its bytes; 0 if it has no conversion.
std::size_t widenFirst(std::string_view text, std::mbstate_t& state, wchar_t& character) {
    const std::size_t length = std::mbrtowc(&character, text.data(), text.size(), &state);
    if (length <= text.size()) return length;
    const auto byte = static_cast<unsigned char>(text.front());
    if (!isByteWithoutCharacter(byte)) return 0;
    state = {};
    character = byte;
    return 1;
}

// Converts the first character of a text that is not empty into `bytes`, and removes its units from the text. Returns
// the number of bytes; 0 if it has no conversion.
std::size_t narrowFirst(WideView& text, std::mbstate_t& state, char (&bytes)[MB_LEN_MAX]) {
    wchar_t character = 0;
    const std::size_t units = internal::characterOf(text, character);
    const unsigned short first = text.front();
    text.remove_prefix(units);
    if (units == 0) return 0;
    const std::size_t length = std::wcrtomb(bytes, character, &state);
    if (length <= sizeof bytes) return length;
    if (!isByteWithoutCharacter(first)) return 0;
    state = {};
    bytes[0] = static_cast<char>(first);
    return 1;
}

unsigned char digitValue(char digit) {
    const auto code = static_cast<signed char>(digit);
    const int base = code >= 'a' ? 'a' - 10 : code >= 'A' ? 'A' - 10 : '0';
    return static_cast<unsigned char>(code - base);
}

// Works like strtok, but keeps no position that the thread, or on some systems the process, shares.
template <typename Char>
std::vector<std::string> tokensOf(Char* text, const char* delimiters) {
    std::vector<std::string> tokens;
    for (;;) {
        text += std::strspn(text, delimiters);
        const std::size_t length = std::strcspn(text, delimiters);
        if (length == 0) return tokens;
        tokens.emplace_back(text, length);
        text += length;
        if (*text == '\0') return tokens;
        if constexpr (!std::is_const_v<Char>) *text = '\0';
        ++text;
    }
}

}  // namespace

char* KestStringToChar(const std::string& s, char* buf, int size) {
    if (!fits(s, buf, size)) return nullptr;
    std::memcpy(buf, s.c_str(), s.size() + 1);
    return buf;
}

unsigned short* KestStringToWideChar(const std::string& s, unsigned short* buf, int size) {
    if (!fits(s, buf, size)) return nullptr;
    std::mbstate_t state{};
    unsigned short* next = buf;
    // A locale may map one byte to a character of two units, so the text may need more units than it has bytes.
    std::size_t room = static_cast<std::size_t>(size) - 1;
    for (std::string_view text = s.c_str(); !text.empty();) {
        wchar_t character = 0;
        const std::size_t length = widenFirst(text, state, character);
        unsigned short units[2];
        const std::size_t count = length == 0 ? 0 : internal::unitsOf(character, units);
        if (count == 0 || count > room) break;
        next = std::copy_n(units, count, next);
        room -= count;
        text.remove_prefix(length);
    }
    *next = 0;
    return buf;
}

std::string KestStringFromChar(const char* s) {
    return s;
}

std::string KestStringFromWideChar(const unsigned short* s) {
    if (s == nullptr) return {};
    WideView text(s);
    const std::size_t most = text.size();
    std::mbstate_t state{};
    std::string result;
    result.reserve(most);
    while (!text.empty() && result.size() < most) {
        char bytes[MB_LEN_MAX];
        const std::size_t length = narrowFirst(text, state, bytes);
        if (length == 0) break;
        result.append(bytes, std::min(length, most - result.size()));
    }
    return result;
}

int KestHexToBytes(char* const out, const std::string& hex) {
    const int count = static_cast<int>(hex.size() / 2);
    const auto pairs = static_cast<std::size_t>(std::max(count, 0));
    const char* const digits = hex.data();
    // No branch depends on the data, so that the compiler can make vector code of it.
    for (std::size_t i = 0; i < pairs; ++i)
        out[i] = static_cast<char>((digitValue(digits[2 * i]) << 4) | digitValue(digits[2 * i + 1]));
    return count;
}

std::string KestBytesToHex(const char* data, int n) {
    const auto count = static_cast<std::size_t>(std::max(n, 0));
    std::string hex(2 * count, '\0');
    char* const digits = hex.data();
    for (std::size_t i = 0; i < count; ++i) {
        const auto byte = static_cast<unsigned char>(data[i]);
        digits[2 * i] = internal::upperHexDigit(byte >> 4U);
        digits[2 * i + 1] = internal::upperHexDigit(byte & 0xFU);
    }
    return hex;
}

void KestTokenizer(char* s, const std::string& delims, std::vector<std::string>& out) {
    char nothing[] = "";
    out = tokensOf(s == nullptr ? nothing : s, delims.c_str());
}

void KestTokenizer(const std::string& s, const std::string& delims, std::vector<std::string>& out) {
    out = tokensOf(s.c_str(), delims.c_str());
}

void KestTokenizer(char* s, std::vector<std::string>& out) {
    std::vector<std::string> items;
    for (const char* item = s; item != nullptr && *item != '\0'; item += items.back().size() + 1)
        items.emplace_back(item);
    out = std::move(items);
}

void KestTokenizer(const std::string& s, std::vector<std::string>& out) {
    std::vector<std::string> items;
    if (*s.c_str() != '\0') items.emplace_back(s.c_str());
    out = std::move(items);
}

void KestParseCommandLine(const std::string& cmd, std::vector<std::string>& out) {
    if (!cmd.empty()) out = internal::splitCommandLine(cmd.c_str(), kSpacesAndDoubleQuotes);
}

std::string KestExtractFirstString(const std::string& s, std::string& rest) {
    std::string_view text = s;
    const bool quoted = text.starts_with('"');
    if (quoted) text.remove_prefix(1);
    const std::size_t end = text.find_first_of(quoted ? "\"" : " \t");
    std::string first(text.substr(0, end));
    if (end != std::string_view::npos) {
        text.remove_prefix(end + 1);
    } else if (!quoted) {
        text = {};
    }
    rest = std::string(text);
    return first;
}

}  // namespace KestSupport
