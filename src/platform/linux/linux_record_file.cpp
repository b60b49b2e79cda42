#include <fcntl.h>
#include <stdio_ext.h>
#include <unistd.h>

#include "platform/linux/linux_call.h"
#include "platform/record_file.h"

namespace KestSupport::platform {
namespace {

template <typename Write>
std::size_t writeWhole(std::string_view text, Write&& write) noexcept {
    std::size_t written = 0;
    while (written < text.size()) {
        const std::string_view rest = text.substr(written);
        const ssize_t taken = systemCall("writeRecords", [&] { return write(rest); });
        if (taken <= 0) break;
        written += static_cast<std::size_t>(taken);
    }
    return written;
}

}  // namespace

bool RecordFile::open(const char* name) noexcept {
    constexpr int flags = O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC | O_NOFOLLOW;
    constexpr mode_t everyone = 0666;
    m_handle = systemCall("openRecordFile", [&] { return ::open(name, flags, everyone); });
    return isOpen();
}

void RecordFile::close() noexcept {
    if (isOpen()) ::close(static_cast<int>(m_handle));
    m_handle = -1;
}

std::size_t RecordFile::write(std::string_view text) noexcept {
    return writeWhole(text, [file = static_cast<int>(m_handle)](std::string_view rest) {
        // To a file that is open for appending it appends, whatever the offset is, without the lock of the file's
        // position that write takes in a program of several threads. A pipe has no offsets.
        const ssize_t appended = ::pwrite(file, rest.data(), rest.size(), 0);
        return appended < 0 && errno == ESPIPE ? ::write(file, rest.data(), rest.size()) : appended;
    });
}

// The stream's own output would lose what it holds when a signal interrupts it.
std::size_t writeAfter(std::FILE* stream, std::string_view text) noexcept {
    if (__fpending(stream) != 0 && std::fflush(stream) != 0) std::clearerr(stream);
    const int descriptor = ::fileno(stream);
    if (descriptor >= 0) {
        return writeWhole(
            text, [descriptor](std::string_view rest) { return ::write(descriptor, rest.data(), rest.size()); });
    }
    // A stream of the C runtime alone, such as one in memory.
    const std::size_t taken = std::fwrite(text.data(), 1, text.size(), stream);
    return std::fflush(stream) == 0 ? taken : 0;
}

}  // namespace KestSupport::platform
