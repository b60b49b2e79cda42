#include "platform/program_path.h"

#include "platform/windows/windows_api.h"

namespace KestSupport::platform {

Result<std::string> programPath(std::size_t capacity) {
    constexpr std::size_t kLongestPath = 32768;
    if (const int error = injectedFault("programPath"); error != 0) return Failure{errorFromErrno(error)};
    std::wstring buffer(kLongestPath, L'\0');
    const DWORD length = GetModuleFileNameW(nullptr, buffer.data(), static_cast<DWORD>(buffer.size()));
    if (length == 0) return Failure{GetLastError()};
    buffer.resize(length);
    std::string narrow = ansiText(buffer);
    if (narrow.size() >= capacity) return Failure{errorInsufficientBuffer};
    return narrow;
}

}  // namespace KestSupport::platform
