// Converts text from the user to numbers.
#pragma once

#include <charconv>
#include <locale>
#include <optional>
#include <sstream>
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

/// The same for decimal fractions, with a dot in every locale. Not every standard library has std::from_chars for them.
template <>
inline std::optional<double> numberFrom(const std::string& text) {
    if (text.starts_with('+') || text.find_first_not_of("0123456789.eE+-") != std::string::npos) return std::nullopt;
    std::istringstream stream(text);
    stream.imbue(std::locale::classic());
    double value = 0;
    if (!(stream >> value) || stream.peek() != std::istringstream::traits_type::eof()) return std::nullopt;
    return value;
}

}  // namespace agent
