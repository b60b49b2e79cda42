#include <fcntl.h>
#include <poll.h>
#include <stdio_ext.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/linux/linux_call.h"
#include "platform/record_file.h"

namespace KestSupport::platform {
namespace {

// Another program may have made a shared pipe or terminal non-blocking. Then a refused write waits until there is room.
template <typename Write>
std::size_t writeWhole(int file, std::string_view text, Write&& write) noexcept {
    std::size_t written = 0;
    while (written < text.size()) {
        const std::string_view rest = text.substr(written);
        const ssize_t taken = systemCall("writeRecords", [&] { return write(file, rest); });
        pollfd room{file, POLLOUT, 0};
        if (taken < 0 && errno == EAGAIN && uninterrupted([&] { return ::poll(&room, 1, -1); }) > 0) continue;
        if (taken <= 0) break;
        written += static_cast<std::size_t>(taken);
    }
    return written;
}

}  // namespace

bool RecordFile::open(const char* name, RecordFileStart start) noexcept {
    // With O_NONBLOCK, opening a named pipe does not wait for a reader.
    constexpr int kFlags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
    const int flags = start == RecordFileStart::empty ? kFlags | O_TRUNC : kFlags;
    constexpr mode_t kEveryone = 0666;
    m_handle = systemCall("openRecordFile", [&] { return ::open(name, flags, kEveryone); });
    // From now on a write waits until there is room. F_SETFL changes no other flag of the open call.
    if (isOpen()) ::fcntl(static_cast<int>(m_handle), F_SETFL, O_APPEND);
    return isOpen();
}

void RecordFile::close() noexcept {
    if (isOpen()) ::close(static_cast<int>(m_handle));
    m_handle = -1;
}

RecordFileState RecordFile::state() const noexcept {
    struct stat status {};
    if (::fstat(static_cast<int>(m_handle), &status) != 0) return {};
    return {static_cast<std::uint64_t>(status.st_size), status.st_mtim.tv_sec};
}

bool RecordFile::hasName(const char* name) const noexcept {
    struct stat own, named;
    return ::fstat(static_cast<int>(m_handle), &own) == 0 && ::lstat(name, &named) == 0 && own.st_dev == named.st_dev &&
           own.st_ino == named.st_ino;
}

std::size_t RecordFile::write(std::string_view text) noexcept {
    return writeWhole(static_cast<int>(m_handle), text, [](int file, std::string_view rest) {
        // With O_APPEND, pwrite appends whatever its offset is. In a program with several threads it is faster than
        // write, since it does not take the lock of the file position. A pipe has no positions.
        // The pwrite of the C runtime is a cancellation point: in a program with several threads that takes 7 % of the
        // time of a record (bench/logging), and a cancelled thread would leave its record unfinished.
        const ssize_t appended = ::syscall(SYS_pwrite64, file, rest.data(), rest.size(), 0L);
        return appended < 0 && errno == ESPIPE ? ::write(file, rest.data(), rest.size()) : appended;
    });
}

std::size_t sizeInFile(std::string_view text) noexcept {
    return text.size();
}

int renameRecordFile(const char* from, const char* to) noexcept {
    return systemCall("renameRecordFile", [&] { return ::rename(from, to); }) == 0 ? 0 : errno;
}

bool mayHaveBufferedText(std::FILE* stream) noexcept {
    return __fpending(stream) != 0;
}

// An output through the stream would lose the text in its buffer when a signal interrupts it.
std::optional<std::size_t> writeToFileOf(std::FILE* stream, std::string_view text) noexcept {
    const int descriptor = ::fileno(stream);
    if (descriptor < 0) return std::nullopt;
    return writeWhole(descriptor, text,
                      [](int file, std::string_view rest) { return ::write(file, rest.data(), rest.size()); });
}

}  // namespace KestSupport::platform
