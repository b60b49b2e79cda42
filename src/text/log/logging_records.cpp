// The life of a record: the first accepted insertion takes the logger's lock, endrecord writes the line and releases
// the lock. open_record.h lists the states in between.
#include <atomic>
#include <string>
#include <string_view>
#include <utility>

#include "platform/record_file.h"
#include "platform/thread.h"
#include "support/locks.h"
#include "support/logging.h"
#include "text/log/logging_state.h"

namespace KestSupport {

using internal::currentLoggingThread;
using internal::LoggingThread;

namespace {

constexpr int kNoticeLevel = 1;  // of records about the log file itself

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
    isShown ? state.writeLine() : state.file.closeReplaced();
}

bool KestLogging::buildLine() {
    internal::LoggingState& state = *m_pState;
    const internal::OpenRecord& record = state.record;
    const bool hasModule = !record.module().empty();
    const int shown = hasModule ? getLogLevel(record.module()) : getLogLevel();
    if (record.text().empty() || (record.level() > shown && record.level() != 0)) return false;
    state.buildLine({record.level(), record.module(), record.builderId(), record.text()});
    return true;
}

void internal::LoggingState::buildLine(const RecordParts& parts) {
    line.clear();
    appendLine(line, parts);
}

void internal::LoggingState::appendLine(std::string& to, const RecordParts& parts) {
    const auto append = [&](std::string_view text) {
        if (escapes) return appendEscaped(to, text);
        makeRoom(to, text.size());
        to += text;
    };
    if (logging.hasRecordData() && parts.level != 0) {
        append(prefix.text(parts.level, parts.module.empty() ? "Global" : parts.module, parts.threadId));
    }
    append(escapes ? parts.text : parts.text.substr(0, parts.text.find('\0')));  // a line ends at the first NUL
    makeRoom(to, 1);
    to += '\n';
}

void internal::LoggingState::writeLine() {
    const int target = logging.getTarget();
    if ((target & KestLogging::fileTarget) != 0) {
        if (file.kept() != nullptr) serveKeptFile(platform::sizeInFile(line));
        if (!file.write(line) && file.kept() != nullptr) file.kept()->countLost();
    }
    if ((target & KestLogging::standardOutputTarget) != 0) output.write(line);
    file.closeReplaced();
}

// The count of lost records goes to the file alone, because the other targets have these records.
void internal::LoggingState::serveKeptFile(std::size_t lineSize) {
    const std::string failure = file.prepareKept(lineSize);
    if (!failure.empty() && logging.getLogLevel() >= kNoticeLevel) {
        const std::string notice = noticeLine(failure);
        file.write(notice);
        if ((logging.getTarget() & KestLogging::standardOutputTarget) != 0) output.write(notice);
    }
    const std::string lost = file.kept()->lostText();
    if (!lost.empty() && file.write(noticeLine(lost))) file.kept()->forgetLost();
}

std::string internal::LoggingState::noticeLine(const std::string& text) {
    std::string notice;
    appendLine(notice, {kNoticeLevel, {}, platform::currentThreadId(), text});
    return notice;
}

void KestSetLogLevelManipulator::leaveRecord() noexcept {
    currentLoggingThread().hasLeftRecord = true;
}

KestLogging& endrecord(KestLogging& logging) {
    internal::LoggingState::endRecord(logging);
    return logging;
}

}  // namespace KestSupport
