#include "system.h"

#include <windows.h>

#include <filesystem>

namespace agent {

std::string programFolder() {
    constexpr std::size_t kLongestPath = 32768;
    std::wstring path(kLongestPath, L'\0');
    path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
    return std::filesystem::path(path).parent_path().string();
}

}  // namespace agent
