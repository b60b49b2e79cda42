// Texts as they are shown: names, descriptions and arguments are other people's, and a terminal obeys what it is sent.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kestsc {

/// The first character of a text that is not empty. A byte that begins no well-formed UTF-8 sequence is a character of
/// its own, and not valid.
struct Character {
    char32_t code;
    std::size_t bytes;
    bool valid;
};
Character firstCharacter(std::string_view text) noexcept;

/// Whether a terminal or an editor does something with the character other than to show it. So do those that turn the
/// direction of a line, which can make it read as another one.
bool isControl(char32_t code) noexcept;

/// The text as a part of one line: control characters and bytes that are no UTF-8 are written out (\x0A, \u202E, \xFF).
std::string printable(std::string_view text);

/// The columns that a printable text takes: one for each code point.
std::size_t displayWidth(std::string_view text) noexcept;

/// The first code points of the text, so many at most; "..." stands for what is cut off.
std::string shortened(std::string_view text, std::size_t mostCharacters);

}  // namespace kestsc
