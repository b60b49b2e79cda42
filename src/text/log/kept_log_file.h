// A log file with a fixed name: it is appended to, rotated, and opened again after another program has renamed it.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <string_view>

#include "platform/record_file.h"
#include "support/logging.h"
#include "text/log/log_file.h"

namespace KestSupport::internal {

/// Threads: one at a time, which writes, except for requestReopen and name.
class KeptLogFile {
  public:
    explicit KeptLogFile(KestLogFileOptions options);

    const std::string& name() const noexcept { return m_options.name; }

    /// The next call of prepare opens the file again.
    void requestReopen() noexcept { m_reopen.store(true, std::memory_order_release); }

    /// Whether prepare has nothing to do before lines of the size.
    bool isReady(const LogFileOutput& output, std::size_t size) const noexcept;
    /// Opens the file again or rotates it, if one of them is due before lines of the size. The file stays the same
    /// after a failure. Returns the text of a record about a new failure, which standard error shows too; else nothing.
    std::string prepare(LogFileOutput& output, std::size_t size);

    /// Writes lines with the given ends. Returns how many of them are lost.
    std::size_t write(LogFileOutput& output, std::string_view text, std::span<const std::size_t> ends);

    /// Counts records that write has not written.
    void countLost(std::size_t records) noexcept { m_lost += records; }
    /// Returns the text of a record about the lost records, empty if there are none.
    std::string lostText() const;
    void forgetLost() noexcept { m_lost = 0; }

  private:
    static constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();

    void begin(LogFileOutput& output, std::int64_t now);
    void measure(const LogFileOutput& output, std::int64_t now);
    bool opens(const LogFileOutput& output) const noexcept;
    bool isDue(std::size_t size, std::int64_t now) const noexcept;
    void open(LogFileOutput& output, platform::RecordFileStart start, std::int64_t now);
    void rotate(LogFileOutput& output, std::int64_t now);
    bool renameOldFiles();
    std::string numbered(int number) const;
    void report(bool& isReported, const std::string& text);

    const KestLogFileOptions m_options;
    std::atomic<bool> m_reopen{false};

    std::uint64_t m_bytes = 0;       // of the file, as far as this process knows
    std::uint64_t m_limit = 0;       // of m_bytes
    std::int64_t m_dayEnd = kNever;  // the calendar second of the next rotation by day

    // The calendar second in which the last opening failed. Another attempt follows in another second.
    std::int64_t m_failedAt = kNever;

    // A failure is reported once until the same step succeeds.
    bool m_isOpenReported = false;
    bool m_isRenameReported = false;
    std::string m_failure;  // what prepare returns

    std::uint64_t m_lost = 0;
    int m_writeError = 0;  // the errno of the last failed write, or of the opening while no file is open
};

}  // namespace KestSupport::internal
