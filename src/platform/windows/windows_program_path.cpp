#include "platform/program_path.h"

#include "platform/windows/windows_api.h"

namespace KestSupport::platform {

// A path that is too long is cut.
Result<std::string> programPath() {
    std::wstring path(kLongestPath, L'\0');
    DWORD length = 0;
    const ErrorCode error = errorCall("programPath", [&] {
        length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
        return length != 0;
    });
    if (error != 0) return Failure{error};
    if (length == path.size()) return Failure{errorInsufficientBuffer};
    path.resize(length);
    return ansiText(path);
}

}  // namespace KestSupport::platform
