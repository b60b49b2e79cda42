// Translates numbers of the service manager to words and back: states, start types, controls, dependencies.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/service_manager.h"
#include "support/strings.h"

namespace kestsc {

using KestSupport::platform::ServiceRun;
using KestSupport::platform::ServiceStatus;

/// Returns the word for a state, such as "running" or "start pending".
std::string stateWord(std::uint32_t state);

/// Returns "auto", "demand" or "disabled"; for another number its digits.
std::string startWord(std::uint32_t startType);

/// Returns the number of one of the three words.
std::optional<std::uint32_t> startTypeOf(std::string_view word);

/// Returns "never", "on-failure" or "always"; for another number its digits.
std::string restartWord(std::uint32_t restart);

/// Returns the number of one of the three words.
std::optional<std::uint32_t> restartOf(std::string_view word);

/// Returns the state of a word for `wait`: running, stopped, paused.
std::optional<std::uint32_t> stateOf(std::string_view word);

/// Returns the control of a word, or of a number that the service defines.
std::optional<std::uint32_t> controlOf(const std::string& word);

/// Returns the number that the whole text is.
std::optional<std::uint32_t> wholeNumber(std::string_view text);

/// Returns the words for the accepted controls, such as "stop".
std::vector<std::string> controlWords(std::uint32_t accepted);

/// Describes the exit codes of a stopped service; "no error" for 0.
std::string endText(const ServiceStatus& status);

/// The same with what is known about the end of its process.
std::string endText(const ServiceStatus& status, const ServiceRun& run);

/// The same in at most 20 columns, for a table: "ok", "error 1067", "signal 9".
std::string shortEndText(const ServiceStatus& status, const ServiceRun& run);

/// Joins the texts with ", ".
std::string listed(const std::vector<std::string>& texts);

/// Converts "A,B" to the list of the service manager, in which a NUL ends each name. An empty text gives an empty list.
/// Returns nothing when one of several names is empty.
std::optional<std::string> dependenciesOf(const std::string& names);

/// Convert between UTF-8 and wide text.
KestSupport::wstring16 wideText(const std::string& text);
std::string narrowText(const KestSupport::wstring16& text);

/// Returns the known words that are nearest to the word, as the end of a message: "; did you mean web?". Returns an
/// empty text if none is near.
std::string suggestionFor(const std::string& word, const std::vector<std::string>& known);

}  // namespace kestsc
