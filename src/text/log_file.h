// The logger's file: its name, its opening, and lines that arrive whole.
//
// Threads: lines are written by whoever holds the lock that serialises the records. Opening and closing take any thread
// and do not wait for a record that stays open: a file that may be in use is put aside, and closed with the next
// record.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/record_file.h"
#include "support/locks.h"

namespace KestSupport::internal {

/// The base name up to its last point, the number and ".log"; a leading double quote goes.
std::string logFileName(const std::string& baseName, int number);

class LogFile {
  public:
    /// Lines are written under `recordLock`.
    LogFile(std::string baseName, KestCriticalSectionObject& recordLock)
        : m_baseName(std::move(baseName)), m_recordLock(recordLock) {}
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;
    ~LogFile() { delete m_pOutput.load(); }

    /// Opens a file under a new random number, unless one is open, and says on standard error that it does and whether
    /// it failed.
    void open();

    /// Closes the file, if one is open. Takes up to 100 ms while another thread's record is open.
    void close();

    /// Closes what close had to put aside. Under the record lock, after each record.
    void closeReplaced() {
        if (m_hasReplaced.load(std::memory_order_relaxed)) destroyReplaced();
    }

    /// Writes a line, its end included, if a file is open. When the system takes only a part, the rest is lost and the
    /// next line begins on a line of its own.
    void write(std::string_view line);

  private:
    struct Output {
        platform::RecordFile file;
        bool lineTorn = false;
    };

    void destroyReplaced();

    const std::string m_baseName;
    KestCriticalSectionObject& m_recordLock;
    std::atomic<Output*> m_pOutput{nullptr};  // owned; what it points to is guarded by m_recordLock

    // Taken after m_recordLock and never before it. Serialises opening and closing.
    KestCriticalSectionObject m_switchLock;
    std::vector<std::unique_ptr<Output>> m_replaced;  // guarded by m_switchLock
    std::atomic<bool> m_hasReplaced{false};           // whether m_replaced holds any
};

}  // namespace KestSupport::internal
