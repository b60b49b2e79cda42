// Translates numbers of the service manager to words and back: states, start types, controls, dependencies.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/service_manager.h"
#include "support/strings.h"

namespace kestsc {

using KestSupport::platform::ServiceStatus;

/// Returns the word for a state, such as "running" or "start pending".
std::string stateWord(std::uint32_t state);

/// Returns "auto", "demand" or "disabled"; for another number its digits.
std::string startWord(std::uint32_t startType);

/// Returns the number of one of the three words.
std::optional<std::uint32_t> startTypeOf(std::string_view word);

/// Returns the words for the accepted controls, such as "stop".
std::vector<std::string> controlWords(std::uint32_t accepted);

/// Describes the exit codes of a stopped service; "no error" for 0.
std::string endText(const ServiceStatus& status);

/// Joins the texts with ", ".
std::string listed(const std::vector<std::string>& texts);

/// Converts "A,B" to the list of the service manager, in which a NUL ends each name. An empty text gives an empty list.
/// Returns nothing when one of several names is empty.
std::optional<std::string> dependenciesOf(const std::string& names);

/// Convert between UTF-8 and wide text.
KestSupport::wstring16 wideText(const std::string& text);
std::string narrowText(const KestSupport::wstring16& text);

}  // namespace kestsc
