// Texts with references: the first line is the value of "a", the second that of "b", the rest is expanded, and compared
// with an expansion by the plainest means.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <string>

#include "input.h"
#include "support/properties.h"
#include "support/utilities.h"

using namespace KestSupport;

namespace {

std::string expandPlainly(std::string text, const std::map<std::string, std::string>& values) {
    for (int count = 0; count < 1000 && text.size() <= 1024 * 1024; ++count) {
        const std::size_t begin = text.find('<');
        const std::size_t end = begin == std::string::npos ? begin : text.find('>', begin);
        if (end == std::string::npos) break;
        const std::string name = text.substr(begin + 1, end - begin - 1);
        const auto value = values.find(name);
        const char* const variable = std::getenv(name.c_str());
        text.replace(begin, end - begin + 1,
                     value != values.end() ? value->second
                     : variable == nullptr ? ""
                                           : variable);
    }
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    KestProperties<std::string> properties;
    std::map<std::string, std::string> values;
    for (const char* name : {"a", "b"}) {
        values[name] = fuzz::takeLine(text);
        properties.addProperty(name, values[name]);
    }
    if (KestExpandString(text, properties) != expandPlainly(text, values)) std::abort();
    return 0;
}
