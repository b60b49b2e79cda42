// JSON, as much as kestsc writes. Results are always well-formed: what is no UTF-8 becomes U+FFFD.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kestsc {

/// The text in quotes, with all escaped that has to be, and control characters of every kind.
std::string jsonText(std::string_view text);

/// An array of values that are JSON already.
std::string jsonArray(const std::vector<std::string>& values);

/// An array of texts.
std::string jsonTexts(const std::vector<std::string>& texts);

/// An object; members stand in the order in which they were added. Names are plain and not checked.
class JsonObject {
  public:
    JsonObject& add(std::string_view name, std::string_view text) { return addJson(name, jsonText(text)); }
    JsonObject& add(std::string_view name, std::int64_t number) { return addJson(name, std::to_string(number)); }
    /// Adds a value that is JSON already.
    JsonObject& addJson(std::string_view name, std::string_view value);
    std::string text() const { return '{' + m_members + '}'; }

  private:
    std::string m_members;
};

}  // namespace kestsc
