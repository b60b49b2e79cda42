// Output of whole records, to a file that they are appended to or after what a stream of the C runtime has: each goes
// to the system at once, in one piece, past the buffers of the C runtime's streams. So a thread that is terminated
// while it writes leaves no stream locked, no failed output remains to silence the records that follow, and a signal
// that interrupts a write loses nothing.
//
// Threads: one at a time. Lifetime: a file is closed when it is destroyed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string_view>

namespace KestSupport::platform {

class RecordFile {
  public:
    RecordFile() noexcept = default;
    RecordFile(const RecordFile&) = delete;
    RecordFile& operator=(const RecordFile&) = delete;
    ~RecordFile() { close(); }

    /// Creates or truncates the file in text mode; children do not inherit it. Not called while a file is open.
    /// False, with errno set, when it cannot be opened; a symbolic link is not followed, and refused (ELOOP).
    bool open(const char* name) noexcept;
    bool isOpen() const noexcept { return m_handle != -1; }
    void close() noexcept;

    /// Writes at the end of what was written before; blocks until the system has taken it. Returns how many characters
    /// it took, which are fewer than given only when the output failed.
    std::size_t write(std::string_view text) noexcept;

  private:
    std::intptr_t m_handle = -1;
};

/// Writes the text after what was put into the stream before; blocks until the system has taken it. Returns how many
/// characters it took, as RecordFile::write. The stream is locked only while it holds text that was not written before.
std::size_t writeAfter(std::FILE* stream, std::string_view text) noexcept;

}  // namespace KestSupport::platform
