#include "platform/windows/windows_file_stream.h"

#include <fcntl.h>
#include <io.h>

#include <new>

#include "platform/windows/windows_api.h"

namespace KestSupport::platform {

// A file that the runtime's own functions open can be neither renamed nor replaced.
Stream openStream(const char* name, StreamMode mode) noexcept try {
    const bool isReading = mode == StreamMode::readBinary;
    const std::wstring path = systemPath(name);
    SystemHandle file;
    const int error = errnoCall("openStream", [&] {
        file = SystemHandle(CreateFileW(path.c_str(), isReading ? GENERIC_READ : GENERIC_WRITE, kAnySharing, nullptr,
                                        isReading ? OPEN_EXISTING : CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
        return file.isOpen();
    });
    if (error != 0) errno = error;
    return streamOf(std::move(file), mode);
} catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return nullptr;
}

Stream streamOf(SystemHandle file, StreamMode mode) noexcept {
    if (!file.isOpen()) return nullptr;
    const bool isText = mode == StreamMode::writeText;
    const int access = (mode == StreamMode::readBinary ? _O_RDONLY : 0) | (isText ? _O_TEXT : 0) | _O_NOINHERIT;
    const int descriptor = _open_osfhandle(reinterpret_cast<std::intptr_t>(file.get()), access);
    if (descriptor < 0) return nullptr;
    file.release();
    Stream stream(_fdopen(descriptor, mode == StreamMode::readBinary ? "rb" : isText ? "wt" : "wb"));
    if (stream == nullptr) {
        _close(descriptor);
        return nullptr;
    }
    std::setvbuf(stream.get(), nullptr, _IONBF, 0);
    return stream;
}

}  // namespace KestSupport::platform
