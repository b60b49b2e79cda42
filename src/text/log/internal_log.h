// How the library itself logs: one call that tests the level and writes the whole record. Never called while a lock is
// held that logging needs, and not by the timers, on which the logger stands.
#pragma once

#include "support/logging.h"

namespace KestSupport::internal {

/// The level that records are written up to; -1 while logging is off. Dumps that belong to one level compare with it.
inline int currentLogLevel() noexcept {
    return KestLogging::isAccessAllowed() ? KestLogging::getInstance().getLogLevel() : -1;
}

/// Writes one record of the values' texts at `level`, if that level is shown.
template <typename... Values>
void logRecord(int level, const Values&... values) {
    if (currentLogLevel() < level) return;
    KestLogging& logging = KestLogging::getInstance() << setloglevel(level);
    (logging << ... << values) << &endrecord;
}

}  // namespace KestSupport::internal
