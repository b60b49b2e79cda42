// Makes texts safe to show. Names, descriptions and arguments may contain sequences that control a terminal.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kestsc {

/// The first character of a text that is not empty. A byte that does not begin a well-formed UTF-8 sequence is one
/// character that is not valid.
struct Character {
    char32_t code;
    std::size_t bytes;
    bool valid;
};
Character firstCharacter(std::string_view text) noexcept;

/// Returns whether the character controls a terminal or an editor. Characters that change the direction of a line count
/// too, because they can make a line read as another one.
bool isControl(char32_t code) noexcept;

/// Returns the text for use within a line. Escapes control characters and bytes that are not UTF-8: \x0A, \u202E, \xFF.
std::string printable(std::string_view text);

/// Returns the number of columns of a printable text: one for each code point.
std::size_t displayWidth(std::string_view text) noexcept;

/// Returns at most the given number of code points of the text; "..." replaces the rest.
std::string shortened(std::string_view text, std::size_t mostCharacters);

}  // namespace kestsc
