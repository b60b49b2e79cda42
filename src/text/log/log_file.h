// The outputs of the logger: its file and standard output. Lines arrive whole.
//
//   LineEnds     begins a new line after a line that was written in part
//   LogOutput    standard output
//   LogFile      the log file: its name, its opening and its closing. What a file with a fixed name needs besides is in
//                kept_log_file.h
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

namespace KestSupport {
struct KestLogFileOptions;
}  // namespace KestSupport

namespace KestSupport::internal {

class KeptLogFile;

/// Remembers whether the last line was written only in part. If so, the next line begins with a line end.
class LineEnds {
  public:
    LineEnds() noexcept = default;
    /// For a file that exists: whether its last line has no end.
    explicit LineEnds(bool torn) noexcept : m_torn(torn) {}

    /// Write takes a text and returns how many of its characters the system took. The others are lost.
    /// Returns whether it took the whole line.
    template <typename Write>
    bool write(std::string_view line, Write&& write) {
        if (m_torn && write("\n") == 0) return false;
        const std::size_t written = write(line);
        m_torn = written != 0 && written != line.size();
        return written == line.size();
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

/// The text about a file that cannot be opened.
std::string openFailure(const std::string& name, int error);

/// A log file from its opening to its closing.
struct LogFileOutput {
    platform::RecordFile file;
    LineEnds lines;
    bool isMeasured = false;              // whether KeptLogFile knows its size
    int openError = 0;                    // why it is not open
    std::unique_ptr<LogFileOutput> next;  // in the list of files that were put aside
};

class LogFile {
  public:
    /// The caller of write and closeReplaced holds `recordLock`. It outlives the object.
    LogFile(std::string baseName, KestCriticalSectionObject& recordLock);
    /// A file with a fixed name.
    LogFile(const KestLogFileOptions& options, KestCriticalSectionObject& recordLock);
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;
    ~LogFile();

    /// Opens the file, unless one is open: one with a new random number in its name, or that with the fixed name.
    /// Reports the attempt, unless the name is fixed, and a failure on standard error.
    void open();

    /// Closes the file if one is open. Takes up to 100 ms while another thread's record is open. Allocates nothing.
    void close() noexcept;

    /// Closes the files that close put aside. Called after each record.
    void closeReplaced() {
        if (m_hasReplaced.load(std::memory_order_relaxed)) destroyReplaced();
    }

    /// Writes a line with its end, if a file is open. Returns false if the output has failed.
    bool write(std::string_view line);

    /// Null unless the name is fixed.
    KeptLogFile* kept() noexcept { return m_pKept.get(); }
    /// Calls prepare of kept, if there is a file. See there.
    std::string prepareKept(std::size_t lineSize);

  private:
    void destroyReplaced();

    const std::string m_baseName;
    KestCriticalSectionObject& m_recordLock;
    const std::unique_ptr<KeptLogFile> m_pKept;      // guarded by m_recordLock
    std::atomic<LogFileOutput*> m_pOutput{nullptr};  // owned; the object is guarded by m_recordLock

    // Serialises opening and closing. Taken after m_recordLock.
    KestCriticalSectionObject m_switchLock;
    std::unique_ptr<LogFileOutput> m_replaced;  // list of the files put aside; guarded by m_switchLock
    std::atomic<bool> m_hasReplaced{false};     // whether the list has any
};

}  // namespace KestSupport::internal
