#include "text/log/log_file.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace KestSupport::internal {

std::string logFileName(const std::string& baseName, int number) {
    std::string name = baseName.substr(0, baseName.rfind('.'));
    name += std::to_string(number) + ".log";
    if (name.front() == '"') name.erase(0, 1);
    return name;
}

void LogOutput::write(std::string_view line) {
    m_lines.write(line, [](std::string_view text) { return platform::writeAfter(stdout, text); });
}

// lockCount allocates the lock. Without that, close could fail.
LogFile::LogFile(std::string baseName, KestCriticalSectionObject& recordLock)
    : m_baseName(std::move(baseName)), m_recordLock(recordLock) {
    m_switchLock.lockCount();
}

void LogFile::open() {
    const KestCriticalSection guard(m_switchLock, true);
    if (m_pOutput.load(std::memory_order_relaxed) != nullptr) return;
    const std::string name = logFileName(m_baseName, std::rand());
    std::fprintf(stderr, "KestLogging: Opening %s for logging...\n", name.c_str());
    auto output = std::make_unique<Output>();
    if (output->file.open(name.c_str())) {
        m_pOutput.store(output.release(), std::memory_order_release);
        return;
    }
    const int error = errno;
    std::fprintf(stderr, "KestLogging: Cannot open log file %s (%d)\n", name.c_str(), error);
}

void LogFile::close() noexcept {
    std::unique_ptr<Output> output(m_pOutput.exchange(nullptr, std::memory_order_acq_rel));
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

void LogFile::write(std::string_view line) {
    Output* const output = m_pOutput.load(std::memory_order_acquire);
    if (output == nullptr) return;
    output->lines.write(line, [output](std::string_view text) { return output->file.write(text); });
}

void LogFile::destroyReplaced() {
    const KestCriticalSection guard(m_switchLock, true);
    m_replaced.reset();
    m_hasReplaced.store(false, std::memory_order_relaxed);
}

}  // namespace KestSupport::internal
