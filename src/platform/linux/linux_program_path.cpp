#include "platform/program_path.h"

#include <unistd.h>

#include <climits>

#include "platform/linux/linux_call.h"

namespace KestSupport::platform {

Result<std::string> programPath() {
    std::string path(PATH_MAX, '\0');
    const ssize_t length =
        systemCall("programPath", [&] { return readlink("/proc/self/exe", path.data(), path.size()); });
    if (length < 0) return systemFailure();
    if (static_cast<std::size_t>(length) == path.size()) return Failure{errorInsufficientBuffer};
    path.resize(static_cast<std::size_t>(length));
    return path;
}

}  // namespace KestSupport::platform
