#include "text.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace kestsc {
namespace {

struct Range {
    char32_t first;
    char32_t last;
};

constexpr Range kControls[] = {{0x00, 0x1F},     {0x7F, 0x9F},     {0x61C, 0x61C},   {0x200E, 0x200F},
                               {0x2028, 0x202E}, {0x2066, 0x2069}, {0xFEFF, 0xFEFF}, {0xFFF9, 0xFFFB}};

std::string escaped(const char* format, char32_t code) {
    char text[12];
    std::snprintf(text, sizeof text, format, static_cast<unsigned>(code));
    return text;
}

}  // namespace

Character firstCharacter(std::string_view text) noexcept {
    const auto lead = static_cast<unsigned char>(text.front());
    if (lead < 0x80) return {lead, 1, true};
    const Character broken{lead, 1, false};
    const std::size_t bytes = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC0 || lead > 0xF7 || text.size() < bytes) return broken;
    char32_t code = lead & (0x7FU >> bytes);
    for (std::size_t i = 1; i < bytes; ++i) {
        const auto next = static_cast<unsigned char>(text[i]);
        if ((next & 0xC0U) != 0x80) return broken;
        code = code << 6U | (next & 0x3FU);
    }
    constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool isSurrogate = code >= 0xD800 && code <= 0xDFFF;
    if (code < kSmallest[bytes] || code > 0x10FFFF || isSurrogate) return broken;
    return {code, bytes, true};
}

bool isControl(char32_t code) noexcept {
    return std::any_of(std::begin(kControls), std::end(kControls),
                       [&](const Range& range) { return code >= range.first && code <= range.last; });
}

std::string printable(std::string_view text) {
    std::string shown;
    while (!text.empty()) {
        const Character each = firstCharacter(text);
        if (each.valid && !isControl(each.code)) {
            shown += text.substr(0, each.bytes);
        } else {
            shown += escaped(each.valid && each.code > 0x7F ? "\\u%04X" : "\\x%02X", each.code);
        }
        text.remove_prefix(each.bytes);
    }
    return shown;
}

std::size_t displayWidth(std::string_view text) noexcept {
    std::size_t width = 0;
    for (; !text.empty(); ++width)
        text.remove_prefix(firstCharacter(text).bytes);
    return width;
}

std::string shortened(std::string_view text, std::size_t mostCharacters) {
    std::size_t end = 0;
    for (std::size_t count = 0; end < text.size() && count < mostCharacters; ++count)
        end += firstCharacter(text.substr(end)).bytes;
    return std::string(text.substr(0, end)) + (end < text.size() ? "..." : "");
}

}  // namespace kestsc
