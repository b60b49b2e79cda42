#include "support/logging.h"

#include <cstdio>
#include <map>

#include "platform/thread.h"
#include "support/locales.h"
#include "support/locks.h"
#include "text/log_file.h"
#include "text/log_format.h"
#include "text/log_record.h"
#include "text/log_watchdog.h"

namespace KestSupport {

namespace {

/// What a thread knows of itself. Numbers of threads are never used twice, unlike the system's ids.
struct LoggingThread {
    std::uint64_t number = 0;
    std::uint64_t refusedBy = 0;  // serial of the logger that refused an insertion into this thread's record
};

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

constexpr int mostDetailedLevel = 9;

KestLogging& applyLevel(KestLogging& logging, const std::string& module, int level) {
    logging.setCurrentLevel(module, level);
    return logging;
}

}  // namespace

namespace internal {

/// The record that is being built. Guarded by the logger's lock, but for the builder, which any thread may compare with
/// itself: only the builder writes its own number there, and only while it holds the lock.
///
/// Whether the record takes insertions is decided at its first one, so that a level that changes meanwhile cannot write
/// it in part; a choice of its own thread opens the question again.
struct OpenRecord {
    static constexpr std::uint64_t nobody = 0;

    std::atomic<std::uint64_t> builder{nobody};
    bool accepted = false;
    int level = mostDetailedLevel;
    std::string module;  // empty for none
    std::string text;

    bool isBuiltBy(const LoggingThread& thread) const noexcept {
        return builder.load(std::memory_order_relaxed) == thread.number;
    }

    void reset() {
        constexpr std::size_t keptCapacity = 65536;
        if (text.capacity() > keptCapacity) std::string().swap(text);
        text.clear();
        module.clear();
        level = mostDetailedLevel;
        accepted = false;
        builder.store(nobody, std::memory_order_relaxed);
    }
};

struct LoggingState {
    LoggingState(const std::string& name, KestLogging& logging)
        : file(name, lock), link(std::make_shared<LogWatchLink>(logging)) {}

    /// Drops what a thread left that was terminated in the middle of its record. The caller has the lock, which such a
    /// thread abandons.
    void dropAbandonedRecord(const LoggingThread& thread) {
        const std::uint64_t builder = record.builder.load(std::memory_order_relaxed);
        if (builder != OpenRecord::nobody && builder != thread.number) resetRecord();
    }

    /// What the thread itself chooses opens the question whether its record takes insertions again.
    void reconsider(LoggingThread& thread) noexcept {
        if (thread.refusedBy == serial) thread.refusedBy = 0;
        if (record.isBuiltBy(thread)) record.accepted = false;
    }

    void resetRecord() {
        watchdog.closeRecord();
        record.reset();
    }

    const std::uint64_t serial = nextSerial();
    KestCriticalSectionObject lock;  // held by the builder of a record from its first insertion to its end
    OpenRecord record;               // guarded by lock
    RecordPrefix prefix;             // guarded by lock
    std::string line;                // guarded by lock; kept for its memory
    LogFile file;                    // written under lock

    KestCriticalSectionObject moduleLock;     // taken after lock
    std::map<std::string, int> moduleLevels;  // guarded by moduleLock

    const std::shared_ptr<LogWatchLink> link;
    LogWatchdog watchdog{60};
};

}  // namespace internal

namespace {

/// Leaves the record idle and the lock free, also when a line cannot be built for lack of memory.
class EndOfRecord {
  public:
    explicit EndOfRecord(internal::LoggingState& state) noexcept : m_state(state) {}
    EndOfRecord(const EndOfRecord&) = delete;
    EndOfRecord& operator=(const EndOfRecord&) = delete;
    ~EndOfRecord() {
        m_state.resetRecord();
        m_state.lock.unlock();
    }

  private:
    internal::LoggingState& m_state;
};

std::string narrowed(const wstring16& text) {
    return KestStringUtilities::narrow(text, KestLocaleFactory::getDefaultLocale(true));
}

void writeToStandardOutput(const std::string& line) {
    std::fwrite(line.data(), 1, line.size(), stdout);
    // What could not be written now must not keep later lines from being tried.
    if (std::fflush(stdout) != 0) std::clearerr(stdout);
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
    if (m_pState->record.isBuiltBy(currentThread())) {
        // A watchdog thread may be waiting for this record to end.
        m_pState->resetRecord();
        m_pState->lock.unlock();
    }
    m_pState->link->cut();
    stopLogging(0);
}

void KestLogging::setInstance(KestLogging& logging) noexcept {
    m_pInstance.store(&logging, std::memory_order_release);
}

void KestLogging::setLogLevel(int level) noexcept {
    if (level < 0 || level > mostDetailedLevel) return;
    m_level.store(level, std::memory_order_relaxed);
    m_pState->reconsider(currentThread());
}

int KestLogging::getLogLevel(const std::string& module) const {
    const KestCriticalSection guard(m_pState->moduleLock, true);
    const auto entry = m_pState->moduleLevels.find(module);
    return entry == m_pState->moduleLevels.end() ? getLogLevel() : entry->second;
}

void KestLogging::setLogLevel(const std::string& module, int level) {
    if (level < -1 || level > mostDetailedLevel) return;
    const KestCriticalSection guard(m_pState->moduleLock, true);
    m_pState->moduleLevels[module] = level;
}

void KestLogging::setCurrentLevel(const std::string& module, int level) {
    if (level < -1) return;
    LoggingThread& thread = currentThread();
    m_pState->reconsider(thread);
    const KestCriticalSection guard(m_pState->lock, true);
    m_pState->dropAbandonedRecord(thread);
    m_pState->record.module = module;
    m_pState->record.level = level;
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
    if (open && record.accepted) return true;
    for (bool watchable = true;;) {  // a record is not lost for lack of its watch
        if (!open) state.lock.lock();
        state.dropAbandonedRecord(thread);
        if (getLogLevel() < record.level) {
            thread.refusedBy = state.serial;
            if (!open) state.lock.unlock();
            return false;
        }
        if (open || state.watchdog.openRecord() || !watchable) break;
        state.lock.unlock();
        watchable = state.watchdog.arm();
    }
    record.builder.store(thread.number, std::memory_order_relaxed);
    record.accepted = true;
    return true;
}

void KestLogging::endrecord() {
    internal::LoggingState& state = *m_pState;
    LoggingThread& thread = currentThread();
    state.reconsider(thread);
    // A lock that an ended thread left taken is not had at the first try, and is free after it.
    const bool open = state.record.isBuiltBy(thread);
    if (!open && !state.lock.testAndSet() && (state.lock.lockCount() != 0 || !state.lock.testAndSet())) return;

    const EndOfRecord end(state);
    cancelTimer();
    writeRecord();
    state.file.closeReplaced();
}

void KestLogging::writeRecord() {
    internal::LoggingState& state = *m_pState;
    const internal::OpenRecord& record = state.record;
    const bool hasModule = !record.module.empty();
    const int shown = hasModule ? getLogLevel(record.module) : getLogLevel();
    if (record.text.empty() || (record.level > shown && record.level != 0)) return;

    std::string& line = state.line;
    line.clear();
    if (m_recordData.load(std::memory_order_relaxed) && record.level != 0) {
        const std::string_view module = hasModule ? std::string_view(record.module) : "Global";
        line += state.prefix.text(record.level, module, platform::currentThreadId());
    }
    line += record.text.c_str();  // a line ends at a NUL, which no reader of text expects
    line += '\n';
    const int target = getTarget();
    if ((target & fileTarget) != 0) state.file.write(line);
    if ((target & standardOutputTarget) != 0) writeToStandardOutput(line);
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
        9,
        "KestLogging::timerElapsed: called (NOTE: This message only appears and repeats when LogLevel = "
        "9)");
}

void KestLogging::handleNotification(KestCollaborator&, const KestNotification&) {
    internal::LogWatchLink::startVisit(m_pState->link);
}

template <typename Append>
KestLogging& KestLogging::insert(Append append) {
    if (getLogAccess()) append(m_pState->record.text);
    return *this;
}

template <typename Integer>
KestLogging& KestLogging::insertDecimal(Integer value) {
    return insert([value](std::string& text) { internal::appendDecimal(text, value); });
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
    return insert([value](std::string& text) { text += value ? "true" : "false"; });
}

KestLogging& KestLogging::operator<<(char value) {
    return insert([value](std::string& text) { text += value; });
}

KestLogging& KestLogging::operator<<(double value) {
    return insert([value](std::string& text) { internal::appendFixed(text, value); });
}

KestLogging& KestLogging::operator<<(const void* value) {
    return insert([value](std::string& text) { internal::appendPointer(text, value); });
}

KestLogging& KestLogging::operator<<(const char* value) {
    return insert([value](std::string& text) { text += value; });
}

KestLogging& KestLogging::operator<<(const std::string& value) {
    return insert([&value](std::string& text) { text += value; });
}

KestLogging& KestLogging::operator<<(const string_ci& value) {
    return insert([&value](std::string& text) { text.append(value.data(), value.size()); });
}

KestLogging& KestLogging::operator<<(const wstring16& value) {
    return insert([&value](std::string& text) { text += narrowed(value); });
}

KestLogging& KestLogging::operator<<(const wstring16_ci& value) {
    return insert([&value](std::string& text) { text += narrowed(wstring16(value.c_str())); });
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
