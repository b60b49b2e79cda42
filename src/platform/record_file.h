// Output of whole records, to the end of a file or to a stream of the C runtime. Each record is written at once and in
// one piece (on Windows, pieces of up to 64 KiB), without the buffers of the C runtime. So a thread that is terminated
// while it writes leaves no stream locked, a failed record does not stop later ones, and a signal that interrupts a
// write loses nothing.
//
// Threads: one at a time. Lifetime: the destructor closes the file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string_view>
#include <utility>

namespace KestSupport::platform {

/// Where an opened file begins.
enum class RecordFileStart {
    empty,  ///< the file is created or truncated
    atEnd,  ///< the file is created, or kept as it is
};

struct RecordFileState {
    std::uint64_t size = 0;      ///< bytes
    std::int64_t lastWrite = 0;  ///< calendar second
};

class RecordFile {
  public:
    RecordFile() noexcept = default;
    RecordFile(const RecordFile&) = delete;
    RecordFile& operator=(const RecordFile&) = delete;
    /// Closes the present file.
    RecordFile& operator=(RecordFile&& other) noexcept {
        close();
        m_handle = std::exchange(other.m_handle, -1);
        return *this;
    }
    ~RecordFile() { close(); }

    /// Opens the file in text mode, to append to it. Children do not inherit it. Requires that no file is open. Returns
    /// false and sets errno if it cannot be opened. A symbolic link is refused (ELOOP), and so is a named pipe that no
    /// process reads (ENXIO).
    bool open(const char* name, RecordFileStart start = RecordFileStart::empty) noexcept;
    bool isOpen() const noexcept { return m_handle != -1; }
    void close() noexcept;

    /// Returns zeros if no file is open or the system does not say.
    RecordFileState state() const noexcept;
    /// Whether the name is that of the open file. It is not after another process has renamed or removed the file.
    bool hasName(const char* name) const noexcept;

    /// Appends the text. Blocks until the system has taken it. Returns how many characters it took, which is less than
    /// all only if the output failed.
    std::size_t write(std::string_view text) noexcept;

  private:
    std::intptr_t m_handle = -1;
};

/// Returns the size that the text has in a file, with the line ends of the system.
std::size_t sizeInFile(std::string_view text) noexcept;

/// Renames a file, and replaces a file that has the new name. The file may be open. Returns a value of errno; 0 is
/// success.
int renameRecordFile(const char* from, const char* to) noexcept;

/// Writes the text after the buffered text of the stream. Blocks until the system has taken it. Returns how many
/// characters it took, like RecordFile::write. The stream is locked only if it has buffered text.
std::size_t writeAfter(std::FILE* stream, std::string_view text) noexcept;

/// Back end: returns whether the stream may have buffered text. Does not lock it if the system tells without that.
bool mayHaveBufferedText(std::FILE* stream) noexcept;

/// Back end: writes the text to the stream's file, without the stream but in its mode. Returns how many characters the
/// system took, or nothing for a stream without a file, such as one in memory.
std::optional<std::size_t> writeToFileOf(std::FILE* stream, std::string_view text) noexcept;

}  // namespace KestSupport::platform
