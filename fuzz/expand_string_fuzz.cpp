// Texts with references. The first line is the value of "a", the second line that of "b". The rest is expanded and
// compared with a plain expansion.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "input.h"
#include "support/properties.h"
#include "support/utilities.h"

using namespace KestSupport;

namespace {

using Values = std::map<std::string, std::string>;

std::string valueOf(const std::string& name, const Values& values) {
    if (const auto value = values.find(name); value != values.end()) return value->second;
    const char* const variable = std::getenv(name.c_str());
    return variable == nullptr ? "" : variable;
}

// Remembers for each character the index of the reference whose value contained it; 0 for the text itself. Returns
// false if that takes too long.
bool expandPlainly(std::string& text, const Values& values) {
    struct Reference {
        std::string name;
        std::size_t origin;  // of its '>'
    };
    std::vector<Reference> references(1);
    std::vector<std::size_t> origins(text.size(), 0);
    std::size_t growthLeft = 1024 * 1024 + 100 * text.size(), position = 0;
    for (std::size_t work = 0; work < 20'000'000; work += text.size()) {
        const std::size_t begin = text.find('<', position);
        const std::size_t end = begin == std::string::npos ? begin : text.find('>', begin);
        if (end == std::string::npos) return true;
        const std::string name = text.substr(begin + 1, end - begin - 1);
        bool stays = false;
        for (std::size_t origin = origins[end]; origin != 0; origin = references[origin].origin)
            stays = stays || references[origin].name == name;
        const std::string value = stays ? "" : valueOf(name, values);
        if (origins[end] != 0) {
            stays = stays || value.size() > growthLeft;
            growthLeft -= stays ? 0 : value.size();
        }
        position = stays ? end + 1 : begin;
        if (stays) continue;
        references.push_back({name, origins[end]});
        text.replace(begin, end - begin + 1, value);
        const auto place = origins.begin() + static_cast<std::ptrdiff_t>(begin);
        origins.erase(place, place + static_cast<std::ptrdiff_t>(end - begin + 1));
        origins.insert(origins.begin() + static_cast<std::ptrdiff_t>(begin), value.size(), references.size() - 1);
    }
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    KestProperties<std::string> properties;
    Values values;
    for (const char* name : {"a", "b"}) {
        values[name] = fuzz::takeLine(text);
        properties.addProperty(name, values[name]);
    }
    const std::string expanded = KestExpandString(text, properties);
    if (expandPlainly(text, values) && text != expanded) std::abort();
    return 0;
}
