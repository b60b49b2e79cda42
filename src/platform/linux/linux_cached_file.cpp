#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "platform/emulated/cached_file.h"
#include "platform/linux/linux_call.h"
#include "platform/linux/linux_descriptor.h"

namespace KestSupport::platform {
namespace {

// A file that changed this many nanoseconds ago has settled. A younger one may change again and keep its time stamps,
// which come from a coarse clock.
constexpr std::int64_t kSettleTime = 100'000'000;

std::int64_t nanoseconds(const timespec& time) noexcept {
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

bool isTrusted(const struct stat& status) noexcept {
    return (status.st_uid == 0 || status.st_uid == ::geteuid()) && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

// 0, or an errno value.
int readAll(int file, std::string& bytes) {
    constexpr std::size_t kReadSize = 65536;
    bytes.clear();
    for (;;) {
        const std::size_t before = bytes.size();
        bytes.resize(before + kReadSize);
        const ssize_t size = systemCall("readRegistry", [&] { return ::read(file, bytes.data() + before, kReadSize); });
        bytes.resize(before + static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
        if (size <= 0) return size == 0 ? 0 : errno;
    }
}

}  // namespace

ErrorCode CachedFile::readIfChanged(const std::string& path, std::string& bytes, bool& changed) {
    const auto stateOf = [](const struct stat& status) {
        return State{status.st_dev, status.st_ino, status.st_size, nanoseconds(status.st_mtim),
                     nanoseconds(status.st_ctim)};
    };
    changed = false;
    struct stat status {};
    if (systemCall("findRegistry", [&] { return ::stat(path.c_str(), &status); }) != 0) return errorFromErrno(errno);
    if (m_settled && stateOf(status) == m_state) return errorSuccess;
    m_settled = false;
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    // Without O_NONBLOCK, opening a pipe waits for its other end.
    constexpr int flags = O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
    const Descriptor file(systemCall("openRegistry", [&] { return ::open(path.c_str(), flags); }));
    // The file may have been replaced by now, so the state is that of the open file.
    if (!file.isOpen() || ::fstat(file.get(), &status) != 0) return errorFromErrno(errno);
    if (!S_ISREG(status.st_mode)) return errorInvalidData;
    if (!isTrusted(status)) return errorAccessDenied;
    if (const int error = readAll(file.get(), bytes); error != 0) return errorFromErrno(error);
    m_state = stateOf(status);
    m_settled = nanoseconds(now) - m_state.changed > kSettleTime;
    changed = true;
    return errorSuccess;
}

}  // namespace KestSupport::platform
