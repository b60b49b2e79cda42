#include "text/command_line_splitter.h"

#include <algorithm>
#include <cstddef>

namespace KestSupport::internal {
namespace {

constexpr std::string_view kDelimiters = " \t";
constexpr std::string_view kQuotes = "\"'";
constexpr std::string_view kSpecial = " \t\"'";

// Appends a quoted stretch to the token; returns the place behind its closing quote. `position` is behind the opening
// one.
std::size_t takeQuoted(std::string_view text, std::size_t position, char quote, std::string& token) {
    for (;;) {
        const std::size_t end = std::min(text.find(quote, position), text.size());
        token.append(text.substr(position, end - position));
        if (end == text.size()) return end;
        const bool doubled = end + 1 < text.size() && text[end + 1] == quote;
        if (!doubled) return end + 1;
        token.push_back(quote);
        position = end + 2;
    }
}

// Appends the token that begins at the position; returns the place of the delimiter that ends it.
std::size_t takeToken(std::string_view text, std::size_t position, std::string& token) {
    for (;;) {
        const std::size_t end = std::min(text.find_first_of(kSpecial, position), text.size());
        token.append(text.substr(position, end - position));
        if (end == text.size() || kQuotes.find(text[end]) == std::string_view::npos) return end;
        position = takeQuoted(text, end + 1, text[end], token);
    }
}

}  // namespace

std::vector<std::string> splitCommandLine(std::string_view text) {
    std::vector<std::string> tokens;
    for (std::size_t position = 0; position < text.size();) {
        const std::size_t end = takeToken(text, position, tokens.emplace_back());
        position = std::min(text.find_first_not_of(kDelimiters, end), text.size());
    }
    return tokens;
}

}  // namespace KestSupport::internal
