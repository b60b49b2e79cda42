// A helper for fuzz targets whose input has several lines.
#pragma once

#include <string>

namespace fuzz {

/// Removes the first line from the text, and returns it without its end.
inline std::string takeLine(std::string& text) {
    const std::size_t end = text.find('\n');
    const std::string line = text.substr(0, end);
    text.erase(0, end == std::string::npos ? end : end + 1);
    return line;
}

}  // namespace fuzz
