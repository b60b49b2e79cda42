#include "system.h"

#include <windows.h>

namespace agent {

std::string programFolder() {
    constexpr std::size_t kLongestPath = 32768;
    std::wstring path(kLongestPath, L'\0');
    path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
    return textOf(std::filesystem::path(path).parent_path());
}

std::filesystem::path pathOf(const std::string& text) {
    std::wstring path(text.size(), L'\0');
    const int size = static_cast<int>(text.size());
    path.resize(static_cast<std::size_t>(MultiByteToWideChar(CP_ACP, 0, text.data(), size, path.data(), size)));
    return path;
}

std::string textOf(const std::filesystem::path& path) {
    const std::wstring& wide = path.native();
    constexpr std::size_t kMostBytesOfUnit = 4;
    std::string text(kMostBytesOfUnit * wide.size(), '\0');
    text.resize(
        static_cast<std::size_t>(WideCharToMultiByte(CP_ACP, 0, wide.data(), static_cast<int>(wide.size()), text.data(),
                                                     static_cast<int>(text.size()), nullptr, nullptr)));
    return text;
}

}  // namespace agent
