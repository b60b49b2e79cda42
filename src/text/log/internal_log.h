// How the library itself logs: one call that tests the level and writes the whole record.
//
// No caller holds a lock that logging needs. The timers do not log: the logger's watchdog is a timer.
#pragma once

#include <atomic>

#include "support/log_record.h"
#include "support/logging.h"

namespace KestSupport::internal {

/// The levels of the library's own records.
enum class LogLevel : int {
    failure = 1,    ///< an operation failed, or a caller made a mistake
    warning = 3,    ///< a part of an operation failed, and the operation continues
    notice = 4,     ///< a step that an administrator may look for
    operation = 5,  ///< operations on files and processes
    trace = 9,      ///< everything else
};

/// The level of the registered logger, read without the logger: another thread may be destroying it.
struct ShownLevel {
    static int get() noexcept { return KestLogging::m_shownLevel.load(std::memory_order_acquire); }
};

/// Returns the level up to which records are written; negative while logging is off.
inline int currentLogLevel() noexcept {
    return ShownLevel::get();
}

/// Whether records of the level are written.
inline bool isLogged(LogLevel level) noexcept {
    return currentLogLevel() >= static_cast<int>(level);
}

/// Whether the logger's level is exactly this one. Some dumps are written only then.
inline bool isLogLevel(LogLevel level) noexcept {
    return currentLogLevel() == static_cast<int>(level);
}

/// Writes one record of the values' texts if records of the level are written.
template <typename... Values>
void logRecord(LogLevel level, const Values&... values) {
    if (KestLogRecord record(static_cast<int>(level)); record) (record << ... << values);
}

}  // namespace KestSupport::internal
