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

void LogOutput::write(std::string_view line) {
    m_lines.write(line, [](std::string_view text) { return platform::writeAfter(stdout, text); });
}

// lockCount allocates the lock. Without that, close could fail.
LogFile::LogFile(std::string baseName, KestCriticalSectionObject& recordLock)
    : m_baseName(std::move(baseName)), m_recordLock(recordLock) {
    m_switchLock.lockCount();
}

LogFile::LogFile(const KestLogFileOptions& options, KestCriticalSectionObject& recordLock)
    : m_recordLock(recordLock), m_pKept(std::make_unique<KeptLogFile>(options)) {
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
    // While this thread has the record lock, no other thread writes.
    if (m_recordLock.testAndSet()) {
        m_recordLock.unlock();
        return;
    }
    const KestCriticalSection guard(m_switchLock, true);
    output->next = std::move(m_replaced);
    m_replaced = std::move(output);
    m_hasReplaced.store(true, std::memory_order_relaxed);
}

bool LogFile::write(std::string_view line) {
    LogFileOutput* const output = m_pOutput.load(std::memory_order_acquire);
    if (output == nullptr) return true;
    if (m_pKept) return m_pKept->write(*output, line);
    return output->lines.write(line, [output](std::string_view text) { return output->file.write(text); });
}

std::string LogFile::prepareKept(std::size_t lineSize) {
    LogFileOutput* const output = m_pOutput.load(std::memory_order_acquire);
    return output == nullptr ? std::string() : m_pKept->prepare(*output, lineSize);
}

void LogFile::destroyReplaced() {
    const KestCriticalSection guard(m_switchLock, true);
    m_replaced.reset();
    m_hasReplaced.store(false, std::memory_order_relaxed);
}

}  // namespace KestSupport::internal
