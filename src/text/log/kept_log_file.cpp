#include "text/log/kept_log_file.h"

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <utility>

#include "platform/clock.h"
#include "platform/file_stream.h"
#include "platform/files.h"
#include "platform/local_time.h"
#include "platform/record_file.h"
#include "platform/uninterrupted.h"

namespace KestSupport::internal {
namespace {

// Returns the first second of the local day after that of the instant.
std::int64_t endOfDay(std::int64_t instant, std::int64_t never) {
    std::tm day{};
    platform::localZoneOfNow();
    if (!platform::localTime(instant, day)) return never;
    ++day.tm_mday;
    day.tm_hour = day.tm_min = day.tm_sec = 0;
    day.tm_isdst = -1;
    const std::int64_t end = platform::instantOfLocalTime(day);
    return end > instant ? end : never;
}

// Returns whether the last line of the file has no end. A process that ended while the disk was full leaves such a
// line.
bool endsInsideLine(const std::string& name) {
    const platform::Stream file = platform::openStream(name.c_str(), platform::StreamMode::readBinary);
    if (file == nullptr || std::fseek(file.get(), -1, SEEK_END) != 0) return false;
    const int last = std::fgetc(file.get());
    return last != EOF && last != '\n';
}

}  // namespace

KeptLogFile::KeptLogFile(KestLogFileOptions options) : m_options(std::move(options)) {}

// Every record calls this, so the usual case is a few comparisons.
bool KeptLogFile::isReady(const LogFileOutput& output, std::size_t size) const noexcept {
    return output.isMeasured && !opens(output) && !isDue(size, platform::coarseCalendarSeconds());
}

bool KeptLogFile::opens(const LogFileOutput& output) const noexcept {
    return m_reopen.load(std::memory_order_acquire) || !output.file.isOpen();
}

std::string KeptLogFile::prepare(LogFileOutput& output, std::size_t size) {
    const std::int64_t now = platform::coarseCalendarSeconds();
    const platform::Uninterrupted whole;  // a termination would leave half of a rotation
    if (!output.isMeasured) {
        output.isMeasured = true;
        m_isOpenReported = !output.file.isOpen();  // LogFile::open has reported it
        if (m_isOpenReported) m_writeError = output.openError;
        m_failedAt = m_isOpenReported ? now : kNever;
        begin(output, now);
    }
    if (opens(output) && m_failedAt != now) open(output, platform::RecordFileStart::atEnd, now);
    if (output.file.isOpen() && isDue(size, now) && m_failedAt != now) rotate(output, now);
    return std::exchange(m_failure, {});
}

std::size_t KeptLogFile::write(LogFileOutput& output, std::string_view text, std::span<const std::size_t> ends) {
    if (!output.file.isOpen()) return ends.size();
    return output.lines.write(text, ends, [&](std::string_view rest) {
        const std::size_t taken = output.file.write(rest);
        if (taken != rest.size()) m_writeError = errno;
        m_bytes += platform::sizeInFile(rest.substr(0, taken));
        return taken;
    });
}

std::string KeptLogFile::lostText() const {
    if (m_lost == 0) return {};
    return "KestLogging: " + std::to_string(m_lost) + (m_lost == 1 ? " record was" : " records were") +
           " not written to " + m_options.name + " (" + std::to_string(m_writeError) + ")";
}

void KeptLogFile::begin(LogFileOutput& output, std::int64_t now) {
    measure(output, now);
    output.lines = LineEnds(m_bytes != 0 && endsInsideLine(m_options.name));
}

// A file that was written on an earlier day is rotated before the first record.
void KeptLogFile::measure(const LogFileOutput& output, std::int64_t now) {
    const platform::RecordFileState state = output.file.state();
    m_bytes = state.size;
    m_limit = m_options.maxBytes == 0 ? std::numeric_limits<std::uint64_t>::max() : m_options.maxBytes;
    m_dayEnd = m_options.daily ? endOfDay(m_bytes == 0 ? now : state.lastWrite, kNever) : kNever;
}

bool KeptLogFile::isDue(std::size_t size, std::int64_t now) const noexcept {
    return now >= m_dayEnd || (m_bytes > 0 && (m_bytes >= m_limit || size > m_limit - m_bytes));
}

void KeptLogFile::open(LogFileOutput& output, platform::RecordFileStart start, std::int64_t now) {
    m_reopen.store(false, std::memory_order_relaxed);
    platform::RecordFile file;
    if (!file.open(m_options.name.c_str(), start)) {
        const int error = errno;
        if (!output.file.isOpen()) m_writeError = error;
        m_failedAt = now;
        m_reopen.store(true, std::memory_order_relaxed);
        report(m_isOpenReported, openFailure(m_options.name, error));
        return;
    }
    m_failedAt = kNever;
    m_isOpenReported = false;
    output.file = std::move(file);
    begin(output, now);
}

// If another program or process has renamed the file, its name belongs to a new file or to none. Then nothing is
// renamed, and the file of that name is opened.
void KeptLogFile::rotate(LogFileOutput& output, std::int64_t now) {
    measure(output, now);
    if (m_bytes == 0) return;
    const bool isNamed = output.file.hasName(m_options.name.c_str());
    if (isNamed && m_options.keep > 0 && !renameOldFiles()) {
        // The next attempt follows after as many bytes again, or on the next day.
        if (m_options.maxBytes > 0) m_limit = m_bytes + m_options.maxBytes;
        if (m_options.daily) m_dayEnd = endOfDay(now, kNever);
        return;
    }
    const bool empties = isNamed && m_options.keep <= 0;
    open(output, empties ? platform::RecordFileStart::empty : platform::RecordFileStart::atEnd, now);
}

// Renames NAME to NAME.1, NAME.1 to NAME.2 and so on, the oldest first. Stops at the first failure, so no file is lost.
bool KeptLogFile::renameOldFiles() {
    int last = 1;
    while (last < m_options.keep && platform::pathExists(numbered(last)))
        ++last;
    for (int number = last; number > 0; --number) {
        const std::string from = numbered(number - 1), to = numbered(number);
        const int error = platform::renameRecordFile(from.c_str(), to.c_str());
        if (error == 0 || error == ENOENT) continue;
        std::string failure = "KestLogging: Cannot rename log file ";
        failure.append(from).append(" to ").append(to).append(" (").append(std::to_string(error)).append(")");
        report(m_isRenameReported, failure);
        return false;
    }
    m_isRenameReported = false;
    return true;
}

std::string KeptLogFile::numbered(int number) const {
    return number == 0 ? m_options.name : m_options.name + '.' + std::to_string(number);
}

void KeptLogFile::report(bool& isReported, const std::string& text) {
    if (std::exchange(isReported, true)) return;
    std::fprintf(stderr, "%s\n", text.c_str());
    m_failure = text;
}

}  // namespace KestSupport::internal
