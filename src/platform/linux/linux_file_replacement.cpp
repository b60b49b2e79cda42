#include "platform/file_replacement.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <new>
#include <string>

#include "platform/common/new_file_name.h"
#include "platform/linux/linux_call.h"
#include "platform/linux/linux_file_stream.h"

namespace KestSupport::platform {
namespace {

constexpr mode_t kNewFile = S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH;  // less the umask
constexpr mode_t kPermissions = 07777;

bool failWith(int error) noexcept {
    errno = error;
    return false;
}

// Returns the path up to and with its last separator; "" for a bare name.
std::string folderOf(const std::string& path) {
    return path.substr(0, path.rfind('/') + 1);
}

// Follows the links at the end of the path. The file at their end need not exist.
bool followLinks(std::string& path) {
    constexpr int kMostLinks = 40;  // as the kernel
    std::array<char, PATH_MAX> target;
    for (int i = 0; i < kMostLinks; ++i) {
        const ssize_t length = ::readlink(path.c_str(), target.data(), target.size());
        if (length < 0) return errno == EINVAL || errno == ENOENT;
        if (static_cast<std::size_t>(length) == target.size()) return failWith(ENAMETOOLONG);
        const std::string next(target.data(), static_cast<std::size_t>(length));
        path = next.front() == '/' ? next : folderOf(path).append(next);
    }
    return failWith(ELOOP);
}

Descriptor createNewFile(const std::string& path, mode_t permissions) noexcept {
    constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    return Descriptor(systemCall("openReplacement", [&] { return ::open(path.c_str(), kFlags, permissions); }));
}

// Changes nothing that is right already: most processes may not give files away. A change of the owner may clear bits
// of the permissions, so these come last.
bool copyAccess(const struct stat& from, int file) noexcept {
    struct stat now {};
    if (::fstat(file, &now) != 0) return false;
    const bool isOwned = now.st_uid == from.st_uid && now.st_gid == from.st_gid;
    if (!isOwned && systemCall("copyAccess", [&] { return ::fchown(file, from.st_uid, from.st_gid); }) != 0)
        return false;
    return systemCall("copyAccess", [&] { return ::fchmod(file, from.st_mode & kPermissions); }) == 0;
}

bool flush(int descriptor) noexcept {
    return systemCall("flushReplacement", [&] { return ::fsync(descriptor); }) == 0;
}

// Some file systems cannot flush a folder.
bool flushFolder(const std::string& path) noexcept {
    const Descriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return folder.isOpen() && (flush(folder.get()) || errno == EINVAL);
}

}  // namespace

struct FileReplacement::State {
    std::string path;     // of the file to replace
    std::string newPath;  // empty: there is no new file to remove
    std::string folder;
    Descriptor file;  // the new file; shares the stream's open file, so that fsync reports errors of its writes
};

FileReplacement::FileReplacement() = default;

FileReplacement::~FileReplacement() {
    if (m_state != nullptr && !m_state->newPath.empty()) ::unlink(m_state->newPath.c_str());
}

Stream FileReplacement::open(const char* name, StreamMode mode) noexcept {
    try {
        m_state = std::make_unique<State>();
        std::string& path = m_state->path;
        path = name;
        if (path.empty()) errno = ENOENT;
        if (path.empty() || !followLinks(path)) return nullptr;
        m_state->folder = folderOf(path).empty() ? "." : folderOf(path);
        struct stat old {};
        const bool exists = ::stat(path.c_str(), &old) == 0;
        if (!exists && errno != ENOENT) return nullptr;
        if (exists && !S_ISREG(old.st_mode)) {
            errno = S_ISDIR(old.st_mode) ? EISDIR : EINVAL;
            return nullptr;
        }
        if (exists && ::faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) != 0) return nullptr;
        Descriptor& file = m_state->file;
        const auto create = [&](const std::string& newPath) {
            file = createNewFile(newPath, exists ? S_IRUSR | S_IWUSR : kNewFile);
            return file.isOpen();
        };
        m_state->newPath = createWithNewName(folderOf(path), static_cast<std::uint32_t>(::getpid()), create);
        if (!file.isOpen() || (exists && !copyAccess(old, file.get()))) return nullptr;
        return streamOf(Descriptor(::fcntl(file.get(), F_DUPFD_CLOEXEC, 0)), mode);
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
        return nullptr;
    }
}

bool FileReplacement::commit() noexcept {
    State& state = *m_state;
    if (!flush(state.file.get())) return false;
    const char* const from = state.newPath.c_str();
    if (systemCall("replaceFile", [&] { return ::rename(from, state.path.c_str()); }) != 0) return false;
    state.newPath.clear();
    return flushFolder(state.folder);
}

}  // namespace KestSupport::platform
