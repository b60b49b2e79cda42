// Where the logger's lines go, so that they arrive whole: its file, with its name and its opening, and standard output.
//
// Threads: lines are written by the thread that holds the lock that serialises the records. Opening and closing take
// any thread and do not wait for a record that stays open: a file that may be in use is put aside, and closed with the
// next record.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <string_view>

#include "platform/record_file.h"
#include "support/locks.h"

namespace KestSupport::internal {

/// Whether a line was written in part only, so that the next one begins on a line of its own.
class LineEnds {
  public:
    /// Write takes a text and returns how many of its characters the system took. What it does not take is lost.
    template <typename Write>
    void write(std::string_view line, Write&& write) {
        if (m_torn && write("\n") == 0) return;
        const std::size_t written = write(line);
        m_torn = written != 0 && written != line.size();
    }

  private:
    bool m_torn = false;
};

class LogOutput {
  public:
    /// Writes a line, its end included, after what the program has put into the stream.
    void write(std::string_view line);

  private:
    LineEnds m_lines;
};

/// The base name up to its last point, even one of a folder's name, the number and ".log"; a leading double quote goes.
std::string logFileName(const std::string& baseName, int number);

class LogFile {
  public:
    /// Lines are written under `recordLock`.
    LogFile(std::string baseName, KestCriticalSectionObject& recordLock);
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;
    ~LogFile() { delete m_pOutput.load(); }

    /// Opens a file under a new random number, unless one is open, and reports on standard error that it does and
    /// whether it failed.
    void open();

    /// Closes the file, if one is open. Takes up to 100 ms while another thread's record is open. Needs no memory.
    void close() noexcept;

    /// Closes what close had to put aside. Under the record lock, after each record.
    void closeReplaced() {
        if (m_hasReplaced.load(std::memory_order_relaxed)) destroyReplaced();
    }

    /// Writes a line, its end included, if a file is open.
    void write(std::string_view line);

  private:
    struct Output {
        platform::RecordFile file;
        LineEnds lines;
        std::unique_ptr<Output> next;  // in the list of those that were put aside
    };

    void destroyReplaced();

    const std::string m_baseName;
    KestCriticalSectionObject& m_recordLock;
    std::atomic<Output*> m_pOutput{nullptr};  // owned; what it points to is guarded by m_recordLock

    // Taken after m_recordLock and never before it. Serialises opening and closing.
    KestCriticalSectionObject m_switchLock;
    std::unique_ptr<Output> m_replaced;      // list of those put aside; guarded by m_switchLock
    std::atomic<bool> m_hasReplaced{false};  // whether there are any
};

}  // namespace KestSupport::internal
