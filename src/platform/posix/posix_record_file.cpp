#include <fcntl.h>
#include <unistd.h>

#include "platform/posix/posix_call.h"
#include "platform/record_file.h"

namespace KestSupport::platform {

bool RecordFile::open(const char* name) noexcept {
    constexpr mode_t everybody = 0666;
    m_descriptor = systemCall(
        "open", [&] { return ::open(name, O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, everybody); });
    return isOpen();
}

void RecordFile::close() noexcept {
    if (isOpen()) ::close(m_descriptor);
    m_descriptor = -1;
}

std::size_t RecordFile::write(std::string_view text) noexcept {
    std::size_t written = 0;
    while (written < text.size()) {
        const std::string_view rest = text.substr(written);
        const ssize_t taken = systemCall("write", [&] {
            // To a file that is open for appending it appends, whatever the offset says, without the lock of the file's
            // position that write takes in a program of several threads. A pipe has no offsets.
            const ssize_t appended = ::pwrite(m_descriptor, rest.data(), rest.size(), 0);
            return appended < 0 && errno == ESPIPE ? ::write(m_descriptor, rest.data(), rest.size()) : appended;
        });
        if (taken <= 0) break;
        written += static_cast<std::size_t>(taken);
    }
    return written;
}

}  // namespace KestSupport::platform
