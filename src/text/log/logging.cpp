#include "support/logging.h"

#include <atomic>
#include <mutex>

#include "platform/uninterrupted.h"
#include "support/locks.h"
#include "text/log/internal_log.h"
#include "text/log/logging_state.h"

namespace KestSupport {
namespace {

constexpr int kMostDetailedLevel = 9;

std::uint64_t nextSerial() noexcept {
    static constinit std::atomic<std::uint64_t> last{0};
    return last.fetch_add(1, std::memory_order_relaxed) + 1;
}

KestLogging& applyLevel(KestLogging& logging, const std::string& module, int level) {
    logging.setCurrentLevel(module, level);
    return logging;
}

}  // namespace

internal::LoggingState::LoggingState(const std::string& name, KestLogging& owner)
    : logging(owner),
      serial(nextSerial()),
      file(name, lock, queue.outputLock()),
      link(std::make_shared<LogWatchLink>(owner)) {
    moduleLock.lockCount();  // allocates it; later, a failure would lose a record
}

internal::LoggingState::LoggingState(const KestLogFileOptions& options, KestLogging& owner)
    : logging(owner),
      serial(nextSerial()),
      escapes(options.escape),
      prefix(options.milliseconds, options.zoneOffset, options.escape),
      file(options, lock, queue.outputLock()),
      link(std::make_shared<LogWatchLink>(owner)) {
    moduleLock.lockCount();  // allocates it; later, a failure would lose a record
}

int internal::LoggingState::moduleLevel(std::string_view module, int otherwise) {
    if (!hasModuleLevels.load(std::memory_order_acquire)) return otherwise;
    const KestCriticalSection guard(moduleLock, true);
    const auto entry = moduleLevels.find(module);
    return entry == moduleLevels.end() ? otherwise : entry->second;
}

void internal::LoggingState::setModuleLevel(const std::string& module, int level) {
    const KestCriticalSection guard(moduleLock, true);
    const platform::Uninterrupted whole;
    moduleLevels[module] = level;
    hasModuleLevels.store(true, std::memory_order_release);
}

constinit std::atomic<KestLogging*> KestLogging::m_pInstance{nullptr};
constinit std::atomic<int> KestLogging::m_shownLevel{-1};

KestLogging::KestLogging() : KestLogging("log", standardOutputTarget, -1) {}

KestLogging::KestLogging(const std::string& name, int target, int level)
    : m_target(target), m_level(level), m_pState(std::make_unique<internal::LoggingState>(name, *this)) {
    m_pState->watchdog.addDependent(*this);
    startLogging();
}

KestLogging::KestLogging(int target, int level, const KestLogFileOptions& options)
    : m_target(target), m_level(level), m_pState(std::make_unique<internal::LoggingState>(options, *this)) {
    m_pState->watchdog.addDependent(*this);
    startLogging();
}

KestLogging::~KestLogging() {
    KestLogging* registered = this;
    if (m_pInstance.compare_exchange_strong(registered, nullptr)) publishLevel();
    m_pState->watchdog.stop();
    if (m_pState->record.isBuiltBy(internal::currentLoggingThread()))
        dropRecord();  // a watchdog thread may wait for its end
    m_pState->link->cut();
    stopLogging(0);
}

void KestLogging::setInstance(KestLogging& logging) noexcept {
    m_pInstance.store(&logging);
    publishLevel();
}

// Called after each change of the two variables that it reads. A thread that stores an old level sees the change, since
// it reads both again, and stores the new one.
void KestLogging::publishLevel() noexcept {
    const auto shownLevel = [] {
        const KestLogging* const logging = m_pInstance.load();
        return logging == nullptr ? -1 : logging->m_level.load();
    };
    int level = -1;
    do {
        level = shownLevel();
        m_shownLevel.store(level);
    } while (shownLevel() != level);
}

void KestLogging::setLogLevel(int level) noexcept {
    if (level < 0 || level > kMostDetailedLevel) return;
    m_level.store(level);
    if (m_pInstance.load() == this) publishLevel();
    m_pState->reconsider(internal::currentLoggingThread());
}

int KestLogging::getLogLevel(const std::string& module) const {
    return m_pState->moduleLevel(module, getLogLevel());
}

void KestLogging::setLogLevel(const std::string& module, int level) {
    if (level < -1 || level > kMostDetailedLevel) return;
    m_pState->setModuleLevel(module, level);
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

void KestLogging::reopen() {
    internal::LoggingState& state = *m_pState;
    if (state.file.kept() == nullptr) return;
    state.file.kept()->requestReopen();
    // If another thread builds or writes a record, the next record opens the file.
    if (!state.lock.testAndSet()) return;
    const std::lock_guard records(state.lock, std::adopt_lock);
    if (!state.queue.outputLock().testAndSet()) return;
    const std::lock_guard writing(state.queue.outputLock(), std::adopt_lock);
    state.serveKeptFile(0);
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

KestSetLogLevelManipulator setloglevel(int level) {
    return KestSetLogLevelManipulator(applyLevel, level);
}

KestSetLogLevelManipulator setloglevel(const std::string& module, int level) {
    return KestSetLogLevelManipulator(applyLevel, module, level);
}

}  // namespace KestSupport
