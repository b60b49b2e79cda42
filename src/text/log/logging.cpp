#include "support/logging.h"

#include <map>
#include <utility>

#include "platform/thread.h"
#include "support/locales.h"
#include "support/locks.h"
#include "text/log/internal_log.h"
#include "text/log/log_file.h"
#include "text/log/log_format.h"
#include "text/log/log_watchdog.h"
#include "text/log/open_record.h"

namespace KestSupport {

using internal::LoggingThread;

namespace {

thread_local constinit LoggingThread t_thread;

LoggingThread& currentThread() noexcept {
    static std::atomic<std::uint64_t> last{0};
    if (t_thread.number == 0) t_thread.number = last.fetch_add(1, std::memory_order_relaxed) + 1;
    return t_thread;
}

std::uint64_t nextSerial() noexcept {
    static std::atomic<std::uint64_t> last{0};
    return last.fetch_add(1, std::memory_order_relaxed) + 1;
}

constexpr int kMostDetailedLevel = 9;

KestLogging& applyLevel(KestLogging& logging, const std::string& module, int level) {
    logging.setCurrentLevel(module, level);
    return logging;
}

}  // namespace

namespace internal {

struct LoggingState {
    LoggingState(const std::string& name, KestLogging& logging)
        : file(name, lock), link(std::make_shared<LogWatchLink>(logging)) {
        // A lock is made on its first use. Memory that is short then must not end a destructor or lose a record.
        for (KestCriticalSectionObject* const each : {&lock, &moduleLock})
            each->lockCount();
    }

    /// What the thread itself chooses opens the question whether its record takes insertions again.
    void reconsider(LoggingThread& thread) noexcept {
        if (thread.refusedBy == serial) thread.refusedBy = 0;
        if (record.isBuiltBy(thread)) record.reconsider();
    }

    void resetRecord() noexcept {
        watchdog.closeRecord();
        record.reset();
    }

    const std::uint64_t serial = nextSerial();
    KestCriticalSectionObject lock;  // held by the builder of a record from its first insertion to its end
    OpenRecord record;               // guarded by lock
    RecordPrefix prefix;             // guarded by lock
    std::string line;                // guarded by lock; kept for its memory
    LogFile file;                    // written under lock
    LogOutput output;                // written under lock

    KestCriticalSectionObject moduleLock;     // taken after lock
    std::map<std::string, int> moduleLevels;  // guarded by moduleLock

    const std::shared_ptr<LogWatchLink> link;
    LogWatchdog watchdog{60};
};

}  // namespace internal

namespace {

// What an end of a record leaves, also when a line cannot be built for lack of memory: a free lock and an idle record.
struct UnlockAtEnd {
    internal::LoggingState& state;
    ~UnlockAtEnd() { state.lock.unlock(); }
};
struct ResetAtEnd {
    internal::LoggingState& state;
    ~ResetAtEnd() { state.resetRecord(); }
};

std::string narrowed(const wstring16& text) {
    return KestStringUtilities::narrow(text, KestLocaleFactory::getDefaultLocale(true));
}

}  // namespace

std::atomic<KestLogging*> KestLogging::m_pInstance{nullptr};

KestLogging::KestLogging() : KestLogging("log", standardOutputTarget, -1) {}

KestLogging::KestLogging(const std::string& name, int target, int level)
    : m_target(target), m_level(level), m_pState(std::make_unique<internal::LoggingState>(name, *this)) {
    m_pState->watchdog.addDependent(*this);
    startLogging();
}

KestLogging::~KestLogging() {
    KestLogging* registered = this;
    m_pInstance.compare_exchange_strong(registered, nullptr);
    m_pState->watchdog.stop();
    if (m_pState->record.isBuiltBy(currentThread())) dropRecord();  // a watchdog thread may be waiting for its end
    m_pState->link->cut();
    stopLogging(0);
}

void KestLogging::setInstance(KestLogging& logging) noexcept {
    m_pInstance.store(&logging, std::memory_order_release);
}

void KestLogging::setLogLevel(int level) noexcept {
    if (level < 0 || level > kMostDetailedLevel) return;
    m_level.store(level, std::memory_order_relaxed);
    m_pState->reconsider(currentThread());
}

int KestLogging::getLogLevel(const std::string& module) const {
    const KestCriticalSection guard(m_pState->moduleLock, true);
    const auto entry = m_pState->moduleLevels.find(module);
    return entry == m_pState->moduleLevels.end() ? getLogLevel() : entry->second;
}

void KestLogging::setLogLevel(const std::string& module, int level) {
    if (level < -1 || level > kMostDetailedLevel) return;
    const KestCriticalSection guard(m_pState->moduleLock, true);
    const platform::Uninterrupted whole;
    m_pState->moduleLevels[module] = level;
}

void KestLogging::setCurrentLevel(const std::string& module, int level) {
    if (level < -1) return;
    LoggingThread& thread = currentThread();
    if (std::exchange(thread.hasLeftRecord, false) && m_pState->record.isBuiltBy(thread)) dropRecord();
    m_pState->reconsider(thread);
    const KestCriticalSection guard(m_pState->lock, true);
    writeAbandonedRecord();
    m_pState->record.choose(module, level);
}

void KestLogging::setCurrentLevel(int level) {
    setCurrentLevel(std::string(), level);
}

void KestLogging::setTarget(int target) {
    if (target == getTarget()) return;
    stopLogging(target);
    m_target.store(target, std::memory_order_relaxed);
    startLogging();
}

void KestLogging::enableRecordData(bool enable) noexcept {
    m_recordData.store(enable, std::memory_order_relaxed);
}

void KestLogging::startLogging() {
    if ((getTarget() & fileTarget) != 0) openLogFile();
}

void KestLogging::stopLogging(int newTarget) {
    if ((getTarget() & fileTarget) != 0 && (newTarget & fileTarget) == 0) m_pState->file.close();
}

void KestLogging::openLogFile() {
    m_pState->file.open();
}

bool KestLogging::getLogAccess() {
    internal::LoggingState& state = *m_pState;
    internal::OpenRecord& record = state.record;
    LoggingThread& thread = currentThread();
    if (thread.refusedBy == state.serial) return false;
    const bool open = record.isBuiltBy(thread);
    if (open && record.isAccepted()) return true;
    for (bool watchable = true;;) {  // a record is not lost for lack of its watch
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
    LoggingThread& thread = currentThread();
    thread.hasLeftRecord = false;
    state.reconsider(thread);
    // A lock that an ended thread left taken is not had at the first try, and is free after it.
    const bool open = state.record.isBuiltBy(thread);
    if (!open && !state.lock.testAndSet() && (state.lock.lockCount() != 0 || !state.lock.testAndSet())) return;

    const UnlockAtEnd end{state};
    writeRecord();
}

// Called with the lock held: a record of another thread that is open then has lost its thread.
void KestLogging::writeAbandonedRecord() {
    const internal::OpenRecord& record = m_pState->record;
    if (!record.hasBuilder() || record.isBuiltBy(currentThread())) return;
    if (record.isOfParent()) return m_pState->resetRecord();
    try {
        writeRecord();
    } catch (...) {  // it is lost, but not the record that this thread begins
        return;
    }
}

// Drops the calling thread's record, which is open.
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
    const int target = isShown ? getTarget() : 0;
    if ((target & fileTarget) != 0) state.file.write(state.line);
    if ((target & standardOutputTarget) != 0) state.output.write(state.line);
    state.file.closeReplaced();
}

bool KestLogging::buildLine() {
    internal::LoggingState& state = *m_pState;
    const internal::OpenRecord& record = state.record;
    const bool hasModule = !record.module().empty();
    const int shown = hasModule ? getLogLevel(record.module()) : getLogLevel();
    if (record.text().empty() || (record.level() > shown && record.level() != 0)) return false;

    std::string& line = state.line;
    line.clear();
    if (m_recordData.load(std::memory_order_relaxed) && record.level() != 0) {
        const std::string_view module = hasModule ? std::string_view(record.module()) : "Global";
        const std::string& prefix = state.prefix.text(record.level(), module, record.builderId());
        internal::makeRoom(line, prefix.size());
        line += prefix;
    }
    internal::makeRoom(line, record.text().size() + 1);
    line += record.text().c_str();  // a line ends at a NUL, which no reader of text expects
    line += '\n';
    return true;
}

void KestLogging::resetTimer() {
    if (m_pState->watchdog.isRecordOpen()) return;
    m_pState->watchdog.arm();
    m_pState->watchdog.openRecord();
}

void KestLogging::cancelTimer() {
    m_pState->watchdog.closeRecord();
}

void KestLogging::timerElapsed() {
    endrecord();
    internal::logRecord(
        internal::LogLevel::trace,
        "KestLogging::timerElapsed: called (NOTE: This message only appears and repeats when LogLevel = "
        "9)");
}

void KestLogging::handleNotification(KestCollaborator&, const KestNotification&) {
    internal::LogWatchLink::startVisit(m_pState->link);
}

// A value that throws leaves a record that the thread's next one replaces. Append appends at most `most` characters.
template <typename Append>
KestLogging& KestLogging::insert(std::size_t most, Append append) {
    if (!getLogAccess()) return *this;
    try {
        append(m_pState->record.textWithRoom(most));
    } catch (...) {
        currentThread().hasLeftRecord = true;
        throw;
    }
    return *this;
}

KestLogging& KestLogging::insertText(std::string_view value) {
    return insert(value.size(), [value](std::string& text) { text += value; });
}

template <typename Integer>
KestLogging& KestLogging::insertDecimal(Integer value) {
    return insert(internal::kMostDecimal, [value](std::string& text) { internal::appendDecimal(text, value); });
}

KestLogging& KestLogging::operator<<(short value) {
    return insertDecimal(value);
}
KestLogging& KestLogging::operator<<(unsigned short value) {
    return insertDecimal(value);
}
KestLogging& KestLogging::operator<<(int value) {
    return insertDecimal(value);
}
KestLogging& KestLogging::operator<<(unsigned int value) {
    return insertDecimal(value);
}
KestLogging& KestLogging::operator<<(long value) {
    return insertDecimal(value);
}
KestLogging& KestLogging::operator<<(unsigned long value) {
    return insertDecimal(value);
}
KestLogging& KestLogging::operator<<(const long long& value) {
    return insertDecimal(value);
}
KestLogging& KestLogging::operator<<(const unsigned long long& value) {
    return insertDecimal(value);
}
KestLogging& KestLogging::operator<<(float value) {
    return *this << static_cast<double>(value);
}

KestLogging& KestLogging::operator<<(bool value) {
    return *this << (value ? "true" : "false");
}

KestLogging& KestLogging::operator<<(char value) {
    return insert(1, [value](std::string& text) { text += value; });
}

KestLogging& KestLogging::operator<<(double value) {
    return insert(internal::kMostFixed, [value](std::string& text) { internal::appendFixed(text, value); });
}

KestLogging& KestLogging::operator<<(const void* value) {
    return insert(2 * sizeof value, [value](std::string& text) { internal::appendPointer(text, value); });
}

KestLogging& KestLogging::operator<<(const char* value) {
    return insertText(value);
}

KestLogging& KestLogging::operator<<(const std::string& value) {
    return insertText(value);
}

KestLogging& KestLogging::operator<<(const string_ci& value) {
    return insertText({value.data(), value.size()});
}

KestLogging& KestLogging::operator<<(const wstring16& value) {
    return insert(0, [&value](std::string& text) {
        const std::string bytes = narrowed(value);
        internal::makeRoom(text, bytes.size());
        text += bytes;
    });
}

KestLogging& KestLogging::operator<<(const wstring16_ci& value) {
    return *this << wstring16(value.c_str());
}

void KestSetLogLevelManipulator::leaveRecord() noexcept {
    currentThread().hasLeftRecord = true;
}

KestSetLogLevelManipulator setloglevel(int level) {
    return KestSetLogLevelManipulator(applyLevel, level);
}

KestSetLogLevelManipulator setloglevel(const std::string& module, int level) {
    return KestSetLogLevelManipulator(applyLevel, module, level);
}

KestLogging& endrecord(KestLogging& logging) {
    logging.endrecord();
    return logging;
}

}  // namespace KestSupport
