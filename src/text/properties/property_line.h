// Splits one line of a property file into name and value. Examples, with the separator '=':
//
//   line            name     value
//   a=  b \r\n      "a"      "b "
//   a b=c=d         "a b"    "c=d"
//   a               "a"      ""
//   #a=b, =b        none
#pragma once

#include <cstddef>

namespace KestSupport::internal {

/// Two parts of the line. With an empty name the line has no property.
template <typename View>
struct PropertyLine {
    View name;
    View value;
};

/// Returns the end of the value: the first carriage return of the line, or, if the line has none, the first line feed.
/// If it is before the separator, the value extends to the end of the line.
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
