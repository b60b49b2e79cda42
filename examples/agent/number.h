// Converts text from the user to numbers.
#pragma once

#include <charconv>
#include <optional>
#include <string>

namespace agent {

/// Returns the number if the whole text is one and it fits the type.
template <typename Number>
std::optional<Number> numberFrom(const std::string& text) {
    Number value{};
    const char* const end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || stopped != end) return std::nullopt;
    return value;
}

}  // namespace agent
