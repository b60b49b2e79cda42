#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "platform/emulated/cached_file.h"
#include "platform/linux/linux_call.h"
#include "platform/linux/linux_descriptor.h"

namespace KestSupport::platform {
namespace {

// A file is settled if its last change is older than this many nanoseconds. A younger file may change again without new
// time stamps, since those come from a coarse clock.
constexpr std::int64_t kSettleTime = 100'000'000;

std::int64_t nanoseconds(const timespec& time) noexcept {
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

bool isTrusted(const struct stat& status) noexcept {
    return (status.st_uid == 0 || status.st_uid == ::geteuid()) && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

// Returns false and sets errno if a read fails.
bool readAll(int file, std::string& bytes) {
    constexpr std::size_t kReadSize = 65536;
    for (;;) {
        const std::size_t before = bytes.size();
        bytes.resize(before + kReadSize);
        const ssize_t size = systemCall("readRegistry", [&] { return ::read(file, bytes.data() + before, kReadSize); });
        bytes.resize(before + static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
        if (size <= 0) return size == 0;
    }
}

}  // namespace

Result<std::optional<std::string>> CachedFile::readIfChanged(const std::string& path) {
    const auto stateOf = [](const struct stat& status) {
        return State{status.st_dev, status.st_ino, status.st_size, nanoseconds(status.st_mtim),
                     nanoseconds(status.st_ctim)};
    };
    // For 10,000 values a look-up takes 211 ns by this question, and 396 ns by a look (bench/environment).
    if (m_settled && m_watch.sawNoChange(path)) return std::optional<std::string>();
    if (m_settled) m_watch.start(path);
    struct stat status {};
    if (systemCall("findRegistry", [&] { return ::stat(path.c_str(), &status); }) != 0) return systemFailure();
    if (m_settled && stateOf(status) == m_state) return std::optional<std::string>();
    m_settled = false;
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    // Without O_NONBLOCK, opening a named pipe waits for a writer.
    constexpr int kFlags = O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
    const Descriptor file(systemCall("openRegistry", [&] { return ::open(path.c_str(), kFlags); }));
    // The file may have been replaced after the call of stat, so the state is that of the open file.
    if (!file.isOpen() || ::fstat(file.get(), &status) != 0) return systemFailure();
    if (!S_ISREG(status.st_mode)) return Failure{errorInvalidData};
    if (!isTrusted(status)) return Failure{errorAccessDenied};
    std::string bytes;
    if (!readAll(file.get(), bytes)) return systemFailure();
    m_state = stateOf(status);
    m_settled = nanoseconds(now) - m_state.changed > kSettleTime;
    return std::optional(std::move(bytes));
}

}  // namespace KestSupport::platform
