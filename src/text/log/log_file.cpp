#include "text/log/log_file.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "text/log/kept_log_file.h"

namespace KestSupport::internal {

std::string logFileName(const std::string& baseName, int number) {
    std::string name = baseName.substr(0, baseName.rfind('.'));
    name += std::to_string(number) + ".log";
    if (name.front() == '"') name.erase(0, 1);
    return name;
}

std::string openFailure(const std::string& name, int error) {
    return "KestLogging: Cannot open log file " + name + " (" + std::to_string(error) + ")";
}

void LogOutput::write(std::string_view text, std::span<const std::size_t> ends) {
    m_lines.write(text, ends, [](std::string_view rest) { return platform::writeAfter(stdout, rest); });
}

// lockCount allocates the lock. Without that, close could fail.
LogFile::LogFile(std::string baseName, LoggerLock& recordLock, LoggerLock& outputLock)
    : m_baseName(std::move(baseName)), m_recordLock(recordLock), m_outputLock(outputLock) {
    m_switchLock.lockCount();
}

LogFile::LogFile(const KestLogFileOptions& options, LoggerLock& recordLock, LoggerLock& outputLock)
    : m_pKept(std::make_unique<KeptLogFile>(options)), m_recordLock(recordLock), m_outputLock(outputLock) {
    m_switchLock.lockCount();
}

LogFile::~LogFile() {
    delete m_pOutput.load();
}

void LogFile::open() {
    const KestCriticalSection guard(m_switchLock, true);
    if (m_pOutput.load(std::memory_order_relaxed) != nullptr) return;
    const std::string name = m_pKept ? m_pKept->name() : logFileName(m_baseName, std::rand());
    const auto start = m_pKept ? platform::RecordFileStart::atEnd : platform::RecordFileStart::empty;
    if (!m_pKept) std::fprintf(stderr, "KestLogging: Opening %s for logging...\n", name.c_str());
    auto output = std::make_unique<LogFileOutput>();
    const bool isOpen = output->file.open(name.c_str(), start);
    if (!isOpen) {
        output->openError = errno;
        std::fprintf(stderr, "%s\n", openFailure(name, output->openError).c_str());
    }
    // A record opens a file with a fixed name later.
    if (isOpen || m_pKept) m_pOutput.store(output.release(), std::memory_order_release);
}

void LogFile::close() noexcept {
    std::unique_ptr<LogFileOutput> output(m_pOutput.exchange(nullptr, std::memory_order_acq_rel));
    if (!output) return;
    if (m_recordLock.testAndSet()) {
        const bool isIdle = m_outputLock.testAndSet();  // while this thread has both locks, no other thread writes
        if (isIdle) m_outputLock.unlock();
        m_recordLock.unlock();
        if (isIdle) return;
    }
    const KestCriticalSection guard(m_switchLock, true);
    output->next = std::move(m_replaced);
    m_replaced = std::move(output);
    m_hasReplaced.store(true, std::memory_order_relaxed);
}

std::size_t LogFile::write(std::string_view text, std::span<const std::size_t> ends) {
    LogFileOutput* const output = m_pOutput.load(std::memory_order_acquire);
    if (output == nullptr) return 0;
    if (m_pKept) return m_pKept->write(*output, text, ends);
    return output->lines.write(text, ends, [output](std::string_view rest) { return output->file.write(rest); });
}

std::string LogFile::prepareKept(std::size_t size) {
    LogFileOutput* const output = m_pOutput.load(std::memory_order_acquire);
    return output == nullptr ? std::string() : m_pKept->prepare(*output, size);
}

bool LogFile::isKeptReady(std::size_t size) const {
    const LogFileOutput* const output = m_pOutput.load(std::memory_order_acquire);
    return output == nullptr || m_pKept->isReady(*output, size);
}

void LogFile::destroyReplaced() {
    const KestCriticalSection guard(m_switchLock, true);
    m_replaced.reset();
    m_hasReplaced.store(false, std::memory_order_relaxed);
}

}  // namespace KestSupport::internal
