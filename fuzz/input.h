// What fuzz targets with inputs of several lines share.
#pragma once

#include <string>

namespace fuzz {

/// Takes the first line off the text, without its end.
inline std::string takeLine(std::string& text) {
    const std::size_t end = text.find('\n');
    const std::string line = text.substr(0, end);
    text.erase(0, end == std::string::npos ? end : end + 1);
    return line;
}

}  // namespace fuzz
