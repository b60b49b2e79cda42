// The life of a record: the first accepted insertion takes the logger's lock, endrecord writes the line and releases
// the lock. open_record.h lists the states in between.
#include <atomic>
#include <string>
#include <string_view>
#include <utility>

#include "platform/thread.h"
#include "support/locks.h"
#include "support/logging.h"
#include "text/log/logging_state.h"

namespace KestSupport {

using internal::currentLoggingThread;
using internal::LoggingThread;

namespace {

thread_local constinit LoggingThread t_thread;

// At the end of a record the lock is free and the record is idle, also when no memory is left for its line.
struct UnlockAtEnd {
    internal::LoggingState& state;
    ~UnlockAtEnd() { state.lock.unlock(); }
};
struct ResetAtEnd {
    internal::LoggingState& state;
    ~ResetAtEnd() { state.resetRecord(); }
};

}  // namespace

LoggingThread& internal::currentLoggingThread() noexcept {
    static constinit std::atomic<std::uint64_t> last{0};
    if (t_thread.number == 0) t_thread.number = last.fetch_add(1, std::memory_order_relaxed) + 1;
    return t_thread;
}

void KestLogging::setCurrentLevel(const std::string& module, int level) {
    if (level < -1) return;
    LoggingThread& thread = currentLoggingThread();
    if (std::exchange(thread.hasLeftRecord, false) && m_pState->record.isBuiltBy(thread)) dropRecord();
    m_pState->reconsider(thread);
    const KestCriticalSection guard(m_pState->lock, true);
    writeAbandonedRecord();
    m_pState->record.choose(module, level);
}

void KestLogging::setCurrentLevel(int level) {
    setCurrentLevel(std::string(), level);
}

bool KestLogging::getLogAccess() {
    internal::LoggingState& state = *m_pState;
    internal::OpenRecord& record = state.record;
    LoggingThread& thread = currentLoggingThread();
    if (thread.refusedBy == state.serial) return false;
    const bool open = record.isBuiltBy(thread);
    if (open && record.isAccepted()) return true;
    for (bool watchable = true;;) {  // without a watchdog the record is still written
        if (!open) state.lock.lock();
        writeAbandonedRecord();
        if (getLogLevel() < record.level()) {
            thread.refusedBy = state.serial;
            if (!open) state.lock.unlock();
            return false;
        }
        if (open || state.watchdog.openRecord() || !watchable) break;
        state.lock.unlock();
        watchable = state.watchdog.arm();
    }
    thread.hasLeftRecord = false;
    record.accept(thread, platform::currentThreadId());
    return true;
}

void KestLogging::endrecord() {
    internal::LoggingState& state = *m_pState;
    LoggingThread& thread = currentLoggingThread();
    thread.hasLeftRecord = false;
    state.reconsider(thread);
    // The first try does not take a lock that an ended thread left taken, but makes it free.
    const bool open = state.record.isBuiltBy(thread);
    if (!open && !state.lock.testAndSet() && (state.lock.lockCount() != 0 || !state.lock.testAndSet())) return;

    const UnlockAtEnd end{state};
    writeRecord();
}

// The caller holds the lock. So another thread that has an open record has ended.
void KestLogging::writeAbandonedRecord() {
    const internal::OpenRecord& record = m_pState->record;
    if (!record.hasBuilder() || record.isBuiltBy(currentLoggingThread())) return;
    if (record.isOfParent()) return m_pState->resetRecord();
    try {
        writeRecord();
    } catch (...) {  // it is lost, but not the record that this thread begins
        return;
    }
}

// Drops the open record of the calling thread.
void KestLogging::dropRecord() noexcept {
    m_pState->resetRecord();
    m_pState->lock.unlock();
}

// The record is reset before its line is written: a thread that is terminated while it writes leaves no open record.
void KestLogging::writeRecord() {
    internal::LoggingState& state = *m_pState;
    bool isShown = false;
    {
        const ResetAtEnd end{state};
        isShown = buildLine();
    }
    state.writeLine(isShown ? getTarget() : 0);
}

bool KestLogging::buildLine() {
    internal::LoggingState& state = *m_pState;
    const internal::OpenRecord& record = state.record;
    const bool hasModule = !record.module().empty();
    const int shown = hasModule ? getLogLevel(record.module()) : getLogLevel();
    if (record.text().empty() || (record.level() > shown && record.level() != 0)) return false;
    state.buildLine({record.level(), record.module(), record.builderId(), record.text()}, hasRecordData());
    return true;
}

void internal::LoggingState::buildLine(const RecordParts& parts, bool hasPrefix) {
    line.clear();
    if (hasPrefix && parts.level != 0) {
        const std::string_view module = parts.module.empty() ? "Global" : parts.module;
        const std::string& text = prefix.text(parts.level, module, parts.threadId);
        makeRoom(line, text.size());
        line += text;
    }
    makeRoom(line, parts.text.size() + 1);
    line += parts.text.substr(0, parts.text.find('\0'));  // a line ends at the text's first NUL
    line += '\n';
}

void internal::LoggingState::writeLine(int target) {
    if ((target & KestLogging::fileTarget) != 0) file.write(line);
    if ((target & KestLogging::standardOutputTarget) != 0) output.write(line);
    file.closeReplaced();
}

void KestSetLogLevelManipulator::leaveRecord() noexcept {
    currentLoggingThread().hasLeftRecord = true;
}

KestLogging& endrecord(KestLogging& logging) {
    logging.endrecord();
    return logging;
}

}  // namespace KestSupport
