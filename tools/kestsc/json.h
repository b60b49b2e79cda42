// Writes JSON, only what kestsc needs. Results are always well-formed: bytes that are not UTF-8 become U+FFFD.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kestsc {

/// Returns the text in quotes. Escapes quotes, backslashes and all control characters.
std::string jsonText(std::string_view text);

/// Returns an array of values that are already JSON.
std::string jsonArray(const std::vector<std::string>& values);

/// Returns an array of texts.
std::string jsonTexts(const std::vector<std::string>& texts);

/// An object. Members keep the order in which they were added. Names are not escaped.
class JsonObject {
  public:
    JsonObject& add(std::string_view name, std::string_view text) { return addJson(name, jsonText(text)); }
    JsonObject& add(std::string_view name, std::int64_t number) { return addJson(name, std::to_string(number)); }
    /// Adds a value that is already JSON.
    JsonObject& addJson(std::string_view name, std::string_view value);
    std::string text() const { return '{' + m_members + '}'; }

  private:
    std::string m_members;
};

}  // namespace kestsc
