// What one line of a property file says.
#pragma once

#include <cstddef>
#include <string_view>

namespace KestSupport::internal {

/// A name and a value within the line; without a name the line says nothing.
template <typename View>
struct PropertyLine {
    View name;
    View value;
};

/// Where the value of a line ends whose separator stands at the given place: at the first carriage return, or, when the
/// line has none, at the first line feed. One that stands before the separator ends nothing.
template <typename View>
std::size_t endOfValue(View line, std::size_t separatorAt) {
    std::size_t end = line.find(typename View::value_type{'\r'});
    if (end == View::npos) end = line.find(typename View::value_type{'\n'});
    return end == View::npos || end <= separatorAt ? line.size() : end;
}

template <typename View>
PropertyLine<View> parsePropertyLine(View line, typename View::value_type separator) {
    using CharType = typename View::value_type;
    if (!line.empty() && line.front() == CharType{'#'}) return {};
    const std::size_t separatorAt = line.find(separator);
    if (separatorAt == View::npos) return {line, line.substr(line.size())};
    View value = line.substr(0, endOfValue(line, separatorAt)).substr(separatorAt + 1);
    while (!value.empty() && value.front() == CharType{' '})
        value.remove_prefix(1);
    return {line.substr(0, separatorAt), value};
}

}  // namespace KestSupport::internal
