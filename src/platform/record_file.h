// A file that whole records are appended to: each goes to the system at once, in one piece, past the C runtime's
// streams. So a thread that is terminated while it writes leaves no stream locked, and no failed output stays behind to
// silence the records that follow.
//
// Threads: one at a time. Lifetime: closed when it is destroyed.
#pragma once

#include <cstddef>
#include <string_view>

namespace KestSupport::platform {

class RecordFile {
  public:
    RecordFile() noexcept = default;
    RecordFile(const RecordFile&) = delete;
    RecordFile& operator=(const RecordFile&) = delete;
    ~RecordFile() { close(); }

    /// Creates or truncates the file in text mode; children do not inherit it. Not called while a file is open.
    /// False, with errno telling why, when it cannot be opened.
    bool open(const char* name) noexcept;
    bool isOpen() const noexcept { return m_descriptor >= 0; }
    void close() noexcept;

    /// Writes at the end of what was written before; blocks until the system has taken it. Returns how many characters
    /// it took, which are fewer than given only when the output failed.
    std::size_t write(std::string_view text) noexcept;

  private:
    int m_descriptor = -1;
};

}  // namespace KestSupport::platform
