#include "platform/windows/windows_api.h"

#include <algorithm>

namespace KestSupport::platform {

std::wstring wideText(std::string_view text) {
    const int length = static_cast<int>(text.size());
    std::wstring wide(text.size(), L'\0');
    const int units =
        length == 0 ? 0
                    : MultiByteToWideChar(CP_ACP, 0, text.data(), length, wide.data(), static_cast<int>(wide.size()));
    wide.resize(static_cast<std::size_t>(units));
    return wide;
}

std::string ansiText(std::wstring_view text) {
    const int length = static_cast<int>(text.size());
    if (length == 0) return {};
    const int bytes = WideCharToMultiByte(CP_ACP, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    std::string narrow(static_cast<std::size_t>(bytes), '\0');
    WideCharToMultiByte(CP_ACP, 0, text.data(), length, narrow.data(), bytes, nullptr, nullptr);
    return narrow;
}

std::wstring systemPath(std::string_view path) {
    // A folder's path has to leave room for a file name of the old form, 8 + 1 + 3 characters.
    constexpr std::size_t kLongestUsualPath = MAX_PATH - 13;
    std::wstring wide = wideText(path);
    if (wide.size() < kLongestUsualPath || wide.starts_with(L"\\\\?\\")) return wide;
    const DWORD room = GetFullPathNameW(wide.c_str(), 0, nullptr, nullptr);
    std::wstring full(room, L'\0');
    full.resize(GetFullPathNameW(wide.c_str(), room, full.data(), nullptr));
    if (full.empty()) return wide;
    return full.starts_with(L"\\\\") ? L"\\\\?\\UNC" + full.substr(1) : L"\\\\?\\" + full;
}

// No header declares the system's function.
bool isProcessEnding() noexcept {
    using IsEnding = BOOLEAN(WINAPI*)();
    const FARPROC function = GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "RtlDllShutdownInProgress");
    return function != nullptr && reinterpret_cast<IsEnding>(reinterpret_cast<void*>(function))();
}

std::wstring environmentVariable(const wchar_t* name) {
    const DWORD room = GetEnvironmentVariableW(name, nullptr, 0);
    std::wstring value(room, L'\0');
    value.resize(room == 0 ? 0 : GetEnvironmentVariableW(name, value.data(), room));
    return value;
}

}  // namespace KestSupport::platform
