#include <cstddef>
#include <cstdlib>
#include <string_view>

#include "support/utilities.h"
#include "text/log_record.h"

namespace KestSupport {
namespace {

constexpr int kLogTrace = 9;
constexpr int kMostReplacements = 1000;
constexpr std::size_t kLongestResult = std::size_t{1024} * 1024;

std::string environmentVariable(const std::string& name) {
    const char* const value = std::getenv(name.c_str());
    return value == nullptr ? std::string() : value;
}

// What is left of the first '<' never changes again, so it is set aside once. A value without a '<' joins it; one with
// a '<' goes back in front of the rest, since its references, and those that it begins, are next.
template <typename Lookup>
std::string expand(const std::string& text, Lookup lookup) {
    internal::logRecord(kLogTrace, "KestExpandString: expand = ", text);
    std::string result;
    std::string rest = text;
    std::size_t position = 0;
    for (int count = 0; count < kMostReplacements; ++count) {
        const std::size_t begin = rest.find('<', position);
        const std::size_t end = begin == std::string::npos ? begin : rest.find('>', begin);
        if (end == std::string::npos || result.size() + rest.size() - position > kLongestResult) break;
        const std::string name = rest.substr(begin + 1, end - begin - 1);
        internal::logRecord(kLogTrace, "KestExpandString: Lookup ", name);
        const std::string value = lookup(name);
        result.append(rest, position, begin - position);
        position = end + 1;
        if (value.find('<') == std::string::npos) {
            result += value;
        } else if (value.size() <= position) {
            position -= value.size();
            rest.replace(position, value.size(), value);
        } else {
            rest.replace(0, position, value);
            position = 0;
        }
    }
    result.append(rest, position);
    internal::logRecord(kLogTrace, "KestExpandString: result = ", result);
    return result;
}

}  // namespace

std::string KestExpandString(const std::string& text) {
    return expand(text, environmentVariable);
}

std::string KestExpandString(const std::string& text, KestProperties<std::string>& properties) {
    return expand(text, [&properties](const std::string& name) {
        std::string value;
        return properties.getPropertyValue(name, value) ? value : environmentVariable(name);
    });
}

}  // namespace KestSupport
