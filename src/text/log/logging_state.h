// The members of a logger. Three files implement KestLogging on top of them:
//
//   logging.cpp            registration, levels, targets and the watchdog
//   logging_records.cpp    the open record: who builds it, its end, and its line
//   logging_insertion.cpp  the insertion operators
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "support/locks.h"
#include "support/logging.h"
#include "text/log/log_file.h"
#include "text/log/log_format.h"
#include "text/log/log_watchdog.h"
#include "text/log/open_record.h"

namespace KestSupport::internal {

/// The calling thread's own.
LoggingThread& currentLoggingThread() noexcept;

struct LoggingState {
    LoggingState(const std::string& name, KestLogging& logging);

    /// A choice of the thread itself decides again whether its record accepts insertions.
    void reconsider(LoggingThread& thread) noexcept {
        if (thread.refusedBy == serial) thread.refusedBy = 0;
        if (record.isBuiltBy(thread)) record.reconsider();
    }

    void resetRecord() noexcept {
        watchdog.closeRecord();
        record.reset();
    }

    const std::uint64_t serial;      // of this logger; never 0
    KestCriticalSectionObject lock;  // held by the builder of a record from its first insertion to its end
    OpenRecord record;               // guarded by lock
    RecordPrefix prefix;             // guarded by lock
    std::string line;                // guarded by lock; a member, so that its memory is used again
    LogFile file;                    // written under lock
    LogOutput output;                // written under lock

    KestCriticalSectionObject moduleLock;     // taken after lock
    std::map<std::string, int> moduleLevels;  // guarded by moduleLock

    const std::shared_ptr<LogWatchLink> link;
    LogWatchdog watchdog{60};
};

}  // namespace KestSupport::internal
