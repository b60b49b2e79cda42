#include <fcntl.h>
#include <unistd.h>

#include "platform/posix/posix_call.h"
#include "platform/record_file.h"

namespace KestSupport::platform {

bool RecordFile::open(const char* name) noexcept {
    constexpr mode_t everybody = 0666;
    m_descriptor =
        systemCall("open", [&] { return ::open(name, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, everybody); });
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
        const ssize_t taken = systemCall("write", [&] { return ::write(m_descriptor, rest.data(), rest.size()); });
        if (taken <= 0) break;
        written += static_cast<std::size_t>(taken);
    }
    return written;
}

}  // namespace KestSupport::platform
