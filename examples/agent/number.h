// Numbers that a user wrote, taken only when the whole text is one.
#pragma once

#include <charconv>
#include <optional>
#include <string>

namespace agent {

/// The number that the text is, nothing else around it; none when it is no number, or too large for the type.
template <typename Number>
std::optional<Number> numberFrom(const std::string& text) {
    Number value{};
    const char* const end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || stopped != end) return std::nullopt;
    return value;
}

}  // namespace agent
