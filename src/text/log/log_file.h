// The outputs of the logger: its file and standard output. Lines arrive whole.
//
//   LineEnds     begins a new line after a line that was written in part
//   LogOutput    standard output
//   LogFile      the log file: its name, its opening and its closing. What a file with a fixed name needs besides is in
//                kept_log_file.h
//
// Threads: one thread at a time writes lines (line_queue.h). Any thread may open and close the file. It does not wait
// for a record that stays open: a file that may be in use is put aside, and closed with the next record.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "platform/record_file.h"
#include "support/locks.h"
#include "text/log/logger_lock.h"

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

    /// Writes lines with the given ends. Write takes a text and returns how many of its characters the system took. The
    /// line that it took in part is lost, and the next one is tried. Returns the number of lost lines.
    template <typename Write>
    std::size_t write(std::string_view text, std::span<const std::size_t> ends, Write&& write) {
        std::size_t lost = 0, begin = 0, written = 0;
        bool isTried = !m_torn;
        if (isTried && (written = write(text)) == text.size()) return 0;
        for (auto end = ends.begin(); end != ends.end(); begin = *end++, ++lost) {
            if (!std::exchange(isTried, false)) {
                if (m_torn && write("\n") == 0) continue;
                written = begin + write(text.substr(begin));
            }
            while (end != ends.end() && *end <= written)
                begin = *end++;
            m_torn = written != begin;
            if (end == ends.end()) break;
        }
        return lost;
    }

  private:
    bool m_torn = false;
};

class LogOutput {
  public:
    /// Writes lines after the text that the program has put into the stream.
    void write(std::string_view text, std::span<const std::size_t> ends);

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
    /// The thread that writes holds one of the locks. They outlive the object.
    LogFile(std::string baseName, LoggerLock& recordLock, LoggerLock& outputLock);
    /// A file with a fixed name.
    LogFile(const KestLogFileOptions& options, LoggerLock& recordLock, LoggerLock& outputLock);
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;
    ~LogFile();

    /// Opens the file, unless one is open: one with a new random number in its name, or that with the fixed name.
    /// Reports the attempt, unless the name is fixed, and a failure on standard error.
    void open();

    /// Closes the file if one is open. Takes up to 100 ms while another thread's record is open, and as long while a
    /// record is written. Allocates nothing.
    void close() noexcept;

    /// Closes the files that close put aside. Called after each record.
    void closeReplaced() {
        if (m_hasReplaced.load(std::memory_order_relaxed)) destroyReplaced();
    }

    /// Writes lines with the given ends, if a file is open. Returns how many of them are lost.
    std::size_t write(std::string_view text, std::span<const std::size_t> ends);

    /// Null unless the name is fixed.
    KeptLogFile* kept() noexcept { return m_pKept.get(); }
    /// Call prepare and isReady of kept, if there is a file. See there.
    std::string prepareKept(std::size_t size);
    bool isKeptReady(std::size_t size) const;

  private:
    void destroyReplaced();

    // What the usual record reads comes first.
    std::atomic<LogFileOutput*> m_pOutput{nullptr};  // owned; the object is used by the thread that writes
    const std::unique_ptr<KeptLogFile> m_pKept;      // used by the thread that writes
    std::atomic<bool> m_hasReplaced{false};          // whether m_replaced has any

    const std::string m_baseName;
    LoggerLock& m_recordLock;
    LoggerLock& m_outputLock;

    // Serialises opening and closing. Taken after m_recordLock and m_outputLock.
    KestCriticalSectionObject m_switchLock;
    std::unique_ptr<LogFileOutput> m_replaced;  // list of the files put aside; guarded by m_switchLock
};

}  // namespace KestSupport::internal
