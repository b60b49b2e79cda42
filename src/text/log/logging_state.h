// The members of a logger. Three files implement KestLogging on top of them:
//
//   logging.cpp            registration, levels, targets and the watchdog
//   logging_records.cpp    the open record: who builds it, its end, and its line
//   logging_insertion.cpp  the insertion operators
//
// log_record.cpp implements KestLogRecord, which writes its line through them.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "support/locks.h"
#include "support/logging.h"
#include "text/log/kept_log_file.h"
#include "text/log/line_queue.h"
#include "text/log/log_file.h"
#include "text/log/log_format.h"
#include "text/log/log_watchdog.h"
#include "text/log/logger_lock.h"
#include "text/log/open_record.h"

namespace KestSupport::internal {

/// What a line is made of.
struct RecordParts {
    int level;
    std::string_view module;  // empty for none
    std::uint32_t threadId;
    std::string_view text;
};

/// The calling thread's own.
LoggingThread& currentLoggingThread() noexcept;

struct LoggingState {
    LoggingState(const std::string& name, KestLogging& logging);
    LoggingState(const KestLogFileOptions& options, KestLogging& logging);

    /// A choice of the thread itself decides again whether its record accepts insertions.
    void reconsider(LoggingThread& thread) noexcept {
        if (thread.refusedBy == serial) thread.refusedBy = 0;
        if (record.isBuiltBy(thread)) record.reconsider();
    }

    void resetRecord() noexcept {
        watchdog.closeRecord();
        record.reset();
    }

    /// For the free function. A friend of the class cannot be exported in a form that every compiler for Windows takes.
    static void endRecord(KestLogging& logging) { logging.endrecord(); }

    /// Takes the lock.
    void enter() {
        if (lock.tryLock()) return;
        lock.lock();
        isShared = true;
    }
    /// Makes the open record idle and queues its line, if the record is shown. The caller holds the lock.
    LineQueue::Turn closeRecord();
    /// Queues the line of a record. The caller holds the lock.
    LineQueue::Turn addLine(const RecordParts& parts);
    /// Writes the line to the targets, or waits until another thread has written it.
    void finishLine(const LineQueue::Turn& turn);
    /// Opens or rotates a file with a fixed name if that is due before lines of the size, and writes what is to be told
    /// about the file. The caller writes.
    void serveKeptFile(std::size_t size);

    /// Returns the module's level, or `otherwise` if the module has none.
    int moduleLevel(std::string_view module, int otherwise);
    void setModuleLevel(const std::string& module, int level);

    const KestLogging& logging;
    const std::uint64_t serial;                // of this logger; never 0
    LoggerLock lock;                           // held by the builder of a record from its first insertion to its end
    bool isShared = false;                     // whether two threads have met at the lock; guarded by lock
    const bool escapes = false;                // whether control characters of a record are escaped
    std::atomic<bool> hasModuleLevels{false};  // whether moduleLevels has any
    OpenRecord record;                         // guarded by lock
    RecordPrefix prefix{false, false, false};  // guarded by lock
    LineQueue queue;                           // decides which thread writes to the next two
    LogFile file;
    LogOutput output;

    KestCriticalSectionObject moduleLock;                  // taken after lock
    std::map<std::string, int, std::less<>> moduleLevels;  // guarded by moduleLock

    const std::shared_ptr<LogWatchLink> link;
    LogWatchdog watchdog{60, record.openSince()};

  private:
    void appendLine(std::string& to, const RecordParts& parts, RecordPrefix& ownPrefix);
    void writeLines(std::string_view text, std::span<const std::size_t> ends);
    std::string noticeLine(const std::string& text);
};

/// Holds one level of the lock of a logger.
class RecordLock {
  public:
    /// With std::adopt_lock, the calling thread holds the level already.
    explicit RecordLock(LoggingState& state) : m_state(state) { state.enter(); }
    RecordLock(LoggingState& state, std::adopt_lock_t) noexcept : m_state(state) {}
    RecordLock(const RecordLock&) = delete;
    RecordLock& operator=(const RecordLock&) = delete;
    ~RecordLock() { unlock(); }

    void unlock() {
        if (std::exchange(m_isHeld, false)) m_state.lock.unlock();
    }

  private:
    LoggingState& m_state;
    bool m_isHeld = true;
};

}  // namespace KestSupport::internal
