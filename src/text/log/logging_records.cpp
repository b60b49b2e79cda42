// The life of a record: the first accepted insertion takes the logger's lock, endrecord writes the line and releases
// the lock. open_record.h lists the states in between.
#include <atomic>
#include <cstddef>
#include <mutex>
#include <new>
#include <span>
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

// Read several times for each record. In the static block of a thread that is a load, and otherwise a call: 10 ns less
// for a record.
#ifdef __ELF__
[[gnu::tls_model("initial-exec")]]
#endif
thread_local constinit LoggingThread t_thread;

// At the end of a record it is idle, also when no memory is left for its line.
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
    const internal::RecordLock guard(*m_pState);
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
        if (!open) state.enter();
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
    if (!open && !state.lock.testAndSet() && (!state.lock.isFree() || !state.lock.testAndSet())) return;

    internal::RecordLock lock(state, std::adopt_lock);
    const internal::LineQueue::Turn turn = state.closeRecord();
    if (turn.isShared()) lock.unlock();
    state.finishLine(turn);
}

// The caller holds the lock. So another thread that has an open record has ended.
void KestLogging::writeAbandonedRecord() {
    const internal::OpenRecord& record = m_pState->record;
    if (!record.hasBuilder() || record.isBuiltBy(currentLoggingThread())) return;
    if (record.isOfParent()) return m_pState->resetRecord();
    try {
        m_pState->finishLine(m_pState->closeRecord());
    } catch (...) {  // it is lost, but not the record that this thread begins
        return;
    }
}

// Drops the open record of the calling thread.
void KestLogging::dropRecord() noexcept {
    m_pState->resetRecord();
    m_pState->lock.unlock();
}

// Makes the record idle and queues its line. So a thread that is terminated while it writes leaves no open record.
internal::LineQueue::Turn internal::LoggingState::closeRecord() {
    const ResetAtEnd end{*this};
    const bool hasModule = !record.module().empty();
    const int shown = hasModule ? logging.getLogLevel(record.module()) : logging.getLogLevel();
    if (record.text().empty() || (record.level() > shown && record.level() != 0)) {
        if (!isShared) file.closeReplaced();
        return {};
    }
    return addLine({record.level(), record.module(), record.builderId(), record.text()});
}

internal::LineQueue::Turn internal::LoggingState::addLine(const RecordParts& parts) {
    const auto build = [&](std::string& to) { appendLine(to, parts, prefix); };
    return isShared ? queue.add(build) : queue.addAlone(build);
}

void internal::LoggingState::finishLine(const LineQueue::Turn& turn) {
    queue.finish(turn, [this](std::string_view text, std::span<const std::size_t> ends) { writeLines(text, ends); });
}

void internal::LoggingState::appendLine(std::string& to, const RecordParts& parts, RecordPrefix& ownPrefix) {
    const auto append = [&](std::string_view text) {
        if (escapes) return appendEscaped(to, text);
        makeRoom(to, text.size());
        to += text;
    };
    if (logging.hasRecordData() && parts.level != 0) {
        ownPrefix.appendTo(to, parts.level, parts.module.empty() ? "Global" : parts.module, parts.threadId);
    }
    append(escapes ? parts.text : parts.text.substr(0, parts.text.find('\0')));  // a line ends at the first NUL
    makeRoom(to, 1);
    to += '\n';
}

void internal::LoggingState::writeLines(std::string_view text, std::span<const std::size_t> ends) {
    const int target = logging.getTarget();
    const bool isKept = file.kept() != nullptr;
    // A file that is rotated or opened now decides about each line.
    if (isKept && ends.size() > 1 && !file.isKeptReady(platform::sizeInFile(text))) {
        std::size_t begin = 0;
        for (const std::size_t end : ends) {
            const std::size_t size = end - begin;
            writeLines(text.substr(std::exchange(begin, end), size), std::span(&size, 1));
        }
        return;
    }
    if ((target & KestLogging::fileTarget) != 0) {
        if (isKept) serveKeptFile(platform::sizeInFile(text));
        const std::size_t lost = file.write(text, ends);
        if (isKept) file.kept()->countLost(lost);
    }
    if ((target & KestLogging::standardOutputTarget) != 0) output.write(text, ends);
    file.closeReplaced();
}

// The count of lost records goes to the file alone, because the other targets have these records. Without memory the
// records are written, and not the notices.
void internal::LoggingState::serveKeptFile(std::size_t size) {
    const auto write = [](auto& to, const std::string& notice) {
        const std::size_t end = notice.size();
        return to.write(notice, std::span(&end, 1));
    };
    try {
        const std::string failure = file.prepareKept(size);
        if (!failure.empty() && logging.getLogLevel() >= kNoticeLevel) {
            const std::string notice = noticeLine(failure);
            write(file, notice);
            if ((logging.getTarget() & KestLogging::standardOutputTarget) != 0) write(output, notice);
        }
        const std::string lost = file.kept()->lostText();
        if (!lost.empty() && write(file, noticeLine(lost)) == 0) file.kept()->forgetLost();
    } catch (const std::bad_alloc&) {
        return;
    }
}

std::string internal::LoggingState::noticeLine(const std::string& text) {
    std::string notice;
    RecordPrefix ownPrefix = prefix.another();  // a thread that builds a record may use the other one
    appendLine(notice, {kNoticeLevel, {}, platform::currentThreadId(), text}, ownPrefix);
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
