#include "platform/linux/linux_file_stream.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/linux/linux_call.h"

namespace KestSupport::platform {
namespace {

// A folder can be opened for reading; only a read would fail.
bool isFolder(int descriptor) noexcept {
    struct stat status {};
    return ::fstat(descriptor, &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

Stream openStream(const char* name, StreamMode mode) noexcept {
    const int flags = O_CLOEXEC | (mode == StreamMode::readBinary ? O_RDONLY : O_WRONLY | O_CREAT | O_TRUNC);
    const mode_t permissions = S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH;
    Descriptor file(systemCall("openStream", [&] { return ::open(name, flags, permissions); }));
    if (file.isOpen() && isFolder(file.get())) {
        errno = EISDIR;
        return nullptr;
    }
    return streamOf(std::move(file), mode);
}

Stream streamOf(Descriptor file, StreamMode mode) noexcept {
    if (!file.isOpen()) return nullptr;
    Stream stream(::fdopen(file.get(), mode == StreamMode::readBinary ? "rb" : "wb"));
    if (stream == nullptr) return nullptr;
    static_cast<void>(file.release());
    std::setvbuf(stream.get(), nullptr, _IONBF, 0);
    return stream;
}

}  // namespace KestSupport::platform
