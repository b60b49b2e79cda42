#include "text/log_file.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace KestSupport::internal {

std::string logFileName(const std::string& baseName, int number) {
    std::string name = baseName.substr(0, baseName.rfind('.'));
    name += std::to_string(number) + ".log";
    if (name.front() == '"') name.erase(0, 1);
    return name;
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

void LogFile::close() {
    std::unique_ptr<Output> output(m_pOutput.exchange(nullptr, std::memory_order_acq_rel));
    if (!output) return;
    // Whoever has the lock of the records knows that nobody is writing.
    if (m_recordLock.testAndSet()) {
        m_recordLock.unlock();
        return;
    }
    const KestCriticalSection guard(m_switchLock, true);
    m_replaced.push_back(std::move(output));
    m_hasReplaced.store(true, std::memory_order_relaxed);
}

void LogFile::write(std::string_view line) {
    Output* const output = m_pOutput.load(std::memory_order_acquire);
    if (output == nullptr) return;
    if (output->lineTorn && output->file.write("\n") == 0) return;
    const std::size_t written = output->file.write(line);
    output->lineTorn = written != 0 && written != line.size();
}

void LogFile::destroyReplaced() {
    const KestCriticalSection guard(m_switchLock, true);
    m_replaced.clear();
    m_hasReplaced.store(false, std::memory_order_relaxed);
}

}  // namespace KestSupport::internal
