// The agent's log: what it is written to, and how a line gets there.
#pragma once

#include <support/logging.h>

#include <memory>
#include <string>

#include "settings.h"

namespace agent {

// Levels of the agent's records; the library's own traces are at 5 and 9.
inline constexpr int kLogWarnings = 1;  ///< crossings, and figures that cannot be read
inline constexpr int kLogSamples = 3;   ///< start, end, and every figure

/// Writes one record, if its level is shown.
void logLine(const std::string& module, int level, const std::string& text);

/// A figure as the log and the state file show it: two decimals, unless it is a whole number.
std::string figureText(double value);

/// Throws BadInput when no log file can be made; nothing is left behind.
void requireLogFile(const Settings& settings);

/// Gives the registered logger the levels of the settings.
void useLogLevels(const Settings& settings);

/// The registered logger. Its file's name is that of the setting, a number, and ".log".
std::unique_ptr<KestSupport::KestLogging> openLog(const Settings& settings);

}  // namespace agent
