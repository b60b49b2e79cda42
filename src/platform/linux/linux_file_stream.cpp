#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/file_stream.h"
#include "platform/linux/linux_call.h"

namespace KestSupport::platform {
namespace {

// A folder can be opened for reading; only a read would fail.
bool isFolder(int descriptor) noexcept {
    struct stat status {};
    return ::fstat(descriptor, &status) == 0 && S_ISDIR(status.st_mode);
}

Stream refuse(int descriptor, int error) noexcept {
    ::close(descriptor);
    errno = error;
    return nullptr;
}

}  // namespace

Stream openStream(const char* name, StreamMode mode) noexcept {
    const bool reading = mode == StreamMode::readBinary;
    const int flags = O_CLOEXEC | (reading ? O_RDONLY : O_WRONLY | O_CREAT | O_TRUNC);
    const mode_t permissions = S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH;
    const int descriptor = systemCall("openStream", [&] { return ::open(name, flags, permissions); });
    if (descriptor < 0) return nullptr;
    if (isFolder(descriptor)) return refuse(descriptor, EISDIR);
    std::FILE* const stream = ::fdopen(descriptor, reading ? "rb" : "wb");
    if (stream == nullptr) return refuse(descriptor, errno);
    std::setvbuf(stream, nullptr, _IONBF, 0);
    return Stream(stream);
}

}  // namespace KestSupport::platform
