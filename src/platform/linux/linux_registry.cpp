// The registry is the file registry.reg in the state directory. What was read of it is kept for as long as the file is
// the same.
#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <mutex>

#include "platform/common/ascii_words.h"
#include "platform/common/registry_file.h"
#include "platform/linux/linux_call.h"
#include "platform/linux/linux_descriptor.h"
#include "platform/process_memory.h"
#include "platform/registry.h"
#include "platform/state_directory.h"
#include "platform/text.h"
#include "platform/uninterrupted.h"
#include "support/strings.h"

namespace KestSupport::platform {
namespace {

// A file that was changed so recently may change once more and keep its time stamps, which come from a coarse clock.
constexpr std::int64_t kSettled = 100'000'000;

std::int64_t nanoseconds(const timespec& time) noexcept {
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

// The text in another code page; the text itself, without a copy, where that makes no difference.
std::string_view recoded(std::string_view text, bool toUtf8, std::string& buffer) {
    if (isAscii(text)) return text;
    const CodePage ansi = ansiCodePage();
    if (ansi == codePageUtf8) return text;
    wstring16 units(text.size(), 0);
    units.resize(widenText(toUtf8 ? ansi : codePageUtf8, text.data(), text.size(), units.data(), units.size()));
    constexpr std::size_t kMostBytesOfUnit = 4;
    buffer.resize(units.size() * kMostBytesOfUnit);
    buffer.resize(narrowText(toUtf8 ? codePageUtf8 : ansi, units.data(), units.size(), buffer.data(), buffer.size()));
    return buffer;
}

// What tells one state of a file from another.
struct FileState {
    dev_t device = 0;
    ino_t number = 0;
    off_t size = 0;
    std::int64_t written = 0;
    std::int64_t changed = 0;

    FileState() = default;
    explicit FileState(const struct stat& status) noexcept
        : device(status.st_dev),
          number(status.st_ino),
          size(status.st_size),
          written(nanoseconds(status.st_mtim)),
          changed(nanoseconds(status.st_ctim)) {}
    bool operator==(const FileState&) const = default;
};

// Whether no user but the administrator and this process's own may have written what is in the file.
bool isTrusted(const struct stat& status) noexcept {
    return (status.st_uid == 0 || status.st_uid == ::geteuid()) && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

// 0, or an errno value.
int readAll(int file, std::string& bytes) {
    constexpr std::size_t kReadSize = 65536;
    for (;;) {
        const std::size_t before = bytes.size();
        bytes.resize(before + kReadSize);
        const ssize_t size = systemCall("readRegistry", [&] { return ::read(file, bytes.data() + before, kReadSize); });
        bytes.resize(before + static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
        if (size <= 0) return size == 0 ? 0 : errno;
    }
}

class Registry {
  public:
    ErrorCode read(std::string_view subkey, std::string_view name, RegistryValue& value) {
        const std::lock_guard guard(m_lock);
        if (const ErrorCode error = stateDirectory(m_path); error != 0) return error;
        m_path += "/registry.reg";
        struct stat status {};
        if (systemCall("findRegistry", [&] { return ::stat(m_path.c_str(), &status); }) != 0)
            return errorFromErrno(errno);
        if (!m_settled || FileState(status) != m_state) {
            if (const ErrorCode error = load(); error != 0) return error;
        }
        return find(subkey, name, value);
    }

  private:
    // The file may have been replaced since it was looked at, so the state is that of what is read.
    ErrorCode load() {
        m_settled = false;
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        // A pipe has no other end to wait for.
        constexpr int flags = O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
        const Descriptor file(systemCall("openRegistry", [&] { return ::open(m_path.c_str(), flags); }));
        struct stat status {};
        if (!file.isOpen() || ::fstat(file.get(), &status) != 0) return errorFromErrno(errno);
        if (!S_ISREG(status.st_mode)) return errorInvalidData;
        if (!isTrusted(status)) return errorAccessDenied;
        std::string bytes;
        if (const int error = readAll(file.get(), bytes); error != 0) return errorFromErrno(error);
        m_file = RegistryFile(bytes);
        m_state = FileState(status);
        m_settled = nanoseconds(now) - m_state.changed > kSettled;
        return errorSuccess;
    }

    ErrorCode find(std::string_view subkey, std::string_view name, RegistryValue& value) const {
        std::string keyBuffer;
        std::string nameBuffer;
        const RegistryValue* const found =
            m_file.find(recoded(subkey, true, keyBuffer), recoded(name, true, nameBuffer));
        if (found == nullptr) return errorFileNotFound;
        value.type = found->type;
        std::string dataBuffer;
        value.data = found->type == kRegistryString ? recoded(found->data, false, dataBuffer) : found->data;
        return errorSuccess;
    }

    UninterruptedMutex m_lock;  // guards what follows
    std::string m_path;         // kept for its memory
    RegistryFile m_file;
    FileState m_state;
    bool m_settled = false;
};

constinit ProcessObject<Registry> g_registry;

}  // namespace

ErrorCode readRegistryValue(std::string_view subkey, std::string_view name, RegistryValue& value) {
    return g_registry.get().read(subkey, name, value);
}

}  // namespace KestSupport::platform
