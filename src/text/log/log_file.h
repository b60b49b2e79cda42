// The outputs of the logger: its file and standard output. Lines arrive whole.
//
//   LineEnds     begins a new line after a line that was written in part
//   LogOutput    standard output
//   LogFile      the log file: its name, its opening and its closing
//
// Threads: the thread that holds the record lock writes lines. Any thread may open and close the file. It does not wait
// for a record that stays open: a file that may be in use is put aside, and closed with the next record.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <string_view>

#include "platform/record_file.h"
#include "support/locks.h"

namespace KestSupport::internal {

/// Remembers whether the last line was written only in part. If so, the next line begins with a line end.
class LineEnds {
  public:
    /// Write takes a text and returns how many of its characters the system took. The others are lost.
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
    /// Writes a line with its end, after the text that the program has put into the stream.
    void write(std::string_view line);

  private:
    LineEnds m_lines;
};

/// Returns the base name up to its last dot, the number and ".log", without a leading double quote. The last dot may be
/// in a folder's name: "/srv/app.d/log" and 7 give "/srv/app7.log".
std::string logFileName(const std::string& baseName, int number);

class LogFile {
  public:
    /// The caller of write and closeReplaced holds `recordLock`. It outlives the object.
    LogFile(std::string baseName, KestCriticalSectionObject& recordLock);
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;
    ~LogFile() { delete m_pOutput.load(); }

    /// Opens a file with a new random number in its name, unless one is open. Reports the attempt, and a failure, on
    /// standard error.
    void open();

    /// Closes the file if one is open. Takes up to 100 ms while another thread's record is open. Allocates nothing.
    void close() noexcept;

    /// Closes the files that close put aside. Called after each record.
    void closeReplaced() {
        if (m_hasReplaced.load(std::memory_order_relaxed)) destroyReplaced();
    }

    /// Writes a line with its end, if a file is open.
    void write(std::string_view line);

  private:
    struct Output {
        platform::RecordFile file;
        LineEnds lines;
        std::unique_ptr<Output> next;  // in the list of files that were put aside
    };

    void destroyReplaced();

    const std::string m_baseName;
    KestCriticalSectionObject& m_recordLock;
    std::atomic<Output*> m_pOutput{nullptr};  // owned; the object is guarded by m_recordLock

    // Serialises opening and closing. Taken after m_recordLock.
    KestCriticalSectionObject m_switchLock;
    std::unique_ptr<Output> m_replaced;      // list of the files put aside; guarded by m_switchLock
    std::atomic<bool> m_hasReplaced{false};  // whether the list has any
};

}  // namespace KestSupport::internal
