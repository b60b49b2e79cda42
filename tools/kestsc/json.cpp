#include "json.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "text.h"

namespace kestsc {

std::string jsonText(std::string_view text) {
    std::string json = "\"";
    while (!text.empty()) {
        const Character each = firstCharacter(text);
        if (!each.valid || isControl(each.code)) {
            constexpr char32_t kReplacement = 0xFFFD;
            char escaped[12];
            std::snprintf(escaped, sizeof escaped, "\\u%04X",
                          static_cast<unsigned>(each.valid ? each.code : kReplacement));
            json += escaped;
        } else {
            if (each.code == U'"' || each.code == U'\\') json += '\\';
            json += text.substr(0, each.bytes);
        }
        text.remove_prefix(each.bytes);
    }
    return json + '"';
}

std::string jsonArray(const std::vector<std::string>& values) {
    std::string json;
    for (const std::string& each : values) {
        if (!json.empty()) json += ',';
        json += each;
    }
    return '[' + json + ']';
}

std::string jsonTexts(const std::vector<std::string>& texts) {
    std::vector<std::string> values;
    std::transform(texts.begin(), texts.end(), std::back_inserter(values), jsonText);
    return jsonArray(values);
}

JsonObject& JsonObject::addJson(std::string_view name, std::string_view value) {
    if (!m_members.empty()) m_members += ',';
    m_members += '"';
    m_members += name;
    m_members += "\":";
    m_members += value;
    return *this;
}

}  // namespace kestsc
