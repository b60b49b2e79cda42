#include "platform/file_stream.h"

#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>

#include "platform/windows/windows_api.h"

namespace KestSupport::platform {
namespace {

struct OpenMode {
    int flags;
    const wchar_t* name;
};

OpenMode openMode(StreamMode mode) noexcept {
    constexpr int kTruncate = _O_WRONLY | _O_CREAT | _O_TRUNC;
    switch (mode) {
        case StreamMode::readBinary:
            return {_O_RDONLY | _O_BINARY, L"rb"};
        case StreamMode::writeText:
            return {kTruncate | _O_TEXT, L"wt"};
        case StreamMode::writeBinary:
            break;
    }
    return {kTruncate | _O_BINARY, L"wb"};
}

}  // namespace

Stream openStream(const char* name, StreamMode mode) noexcept {
    if (const int error = injectedFault("openStream"); error != 0) {
        errno = error;
        return nullptr;
    }
    try {
        const OpenMode how = openMode(mode);
        const int descriptor = _wopen(systemPath(name).c_str(), how.flags | _O_NOINHERIT, _S_IREAD | _S_IWRITE);
        if (descriptor < 0) return nullptr;
        Stream stream(_wfdopen(descriptor, how.name));
        if (stream == nullptr) {
            _close(descriptor);
            return nullptr;
        }
        std::setvbuf(stream.get(), nullptr, _IONBF, 0);
        return stream;
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
        return nullptr;
    }
}

}  // namespace KestSupport::platform
