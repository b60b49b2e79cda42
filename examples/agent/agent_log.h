// The agent's log.
#pragma once

#include <support/logging.h>

#include <memory>
#include <string>

#include "settings.h"

namespace agent {

// Levels of the agent's records; the library's own traces are at 5 and 9.
inline constexpr int kLogWarnings = 1;  ///< crossings, and figures that cannot be read
inline constexpr int kLogSamples = 3;   ///< start, end, and every figure

/// Writes one record unless the log level suppresses it.
void logLine(const std::string& module, int level, const std::string& text);

/// Formats a figure for the log and the state file: without decimals if it is a whole number, else with two.
std::string figureText(double value);

/// Throws BadInput when the log file can be neither appended to nor created. Leaves no new file.
void requireLogFile(const Settings& settings);

/// Sets the levels of the registered logger from the settings.
void useLogLevels(const Settings& settings);

/// Creates and registers the logger, which appends to the log file and rotates it.
std::unique_ptr<KestSupport::KestLogging> openLog(const Settings& settings);

}  // namespace agent
