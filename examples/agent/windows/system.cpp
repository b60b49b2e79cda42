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

// Backslashes count only before a quote.
std::string quoted(const std::string& word) {
    std::string text = "\"";
    std::size_t backslashes = 0;
    for (const char each : word) {
        if (each == '"') text.append(backslashes + 1, '\\');
        backslashes = each == '\\' ? backslashes + 1 : 0;
        text += each;
    }
    return text.append(backslashes, '\\') + '"';
}

}  // namespace agent
