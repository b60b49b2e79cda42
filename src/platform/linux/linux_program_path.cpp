#include "platform/program_path.h"

#include <unistd.h>

#include "platform/error.h"
#include "platform/linux/linux_call.h"

namespace KestSupport::platform {

ErrorCode programPath(std::size_t capacity, std::string& path) {
    std::string buffer(capacity, '\0');
    const ssize_t length =
        systemCall("programPath", [&] { return readlink("/proc/self/exe", buffer.data(), buffer.size()); });
    if (length < 0) return errorFromErrno(errno);
    if (static_cast<std::size_t>(length) >= capacity) return errorInsufficientBuffer;
    buffer.resize(static_cast<std::size_t>(length));
    path = std::move(buffer);
    return 0;
}

}  // namespace KestSupport::platform
