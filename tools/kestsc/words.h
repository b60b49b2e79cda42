// The words for what services are and have, and back: states, start types, lists of dependencies.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/service_manager.h"

namespace kestsc {

using KestSupport::platform::ServiceStatus;

/// "running", "start pending" and so on.
std::string stateWord(std::uint32_t state);

/// "auto", "demand", "disabled"; another number as it is.
std::string startWord(std::uint32_t startType);

/// The mirror of startWord for the three words.
std::optional<std::uint32_t> startTypeOf(std::string_view word);

/// The controls that a service takes, such as "stop".
std::vector<std::string> controlWords(std::uint32_t accepted);

/// How a service ended that is stopped: "no error", or what its exit codes say.
std::string endText(const ServiceStatus& status);

/// The texts with ", " between.
std::string listed(const std::vector<std::string>& texts);

/// Names as the service manager takes them, from names with commas between. An empty text has none; nothing when one
/// of several is empty.
std::optional<std::string> dependenciesOf(const std::string& names);

/// UTF-8 to wide text and back.
KestSupport::wstring16 wideText(const std::string& text);
std::string narrowText(const KestSupport::wstring16& text);

}  // namespace kestsc
