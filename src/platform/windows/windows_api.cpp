#include "platform/windows/windows_api.h"

#include "platform/common/wide_units.h"

namespace KestSupport::platform {
namespace {

// No header declares the system's function. It is found while the library is loaded, since a search later takes the
// lock of the loader, for which a thread with a lock of the library must not wait.
using IsEnding = BOOLEAN(WINAPI*)();
const IsEnding g_isProcessEnding = reinterpret_cast<IsEnding>(systemFunction("RtlDllShutdownInProgress"));

// Empty if the path is not valid. The current folder may change between two calls.
std::wstring absolutePath(const std::wstring& path) {
    std::wstring full(MAX_PATH, L'\0');
    for (;;) {
        const auto room = static_cast<DWORD>(full.size());
        const DWORD length = GetFullPathNameW(path.c_str(), room, full.data(), nullptr);
        full.resize(length);
        if (length < room) return full;
    }
}

// A folder's path has to leave room for a file name of the old form, 8 + 1 + 3 characters.
constexpr std::size_t kLongestUsualPath = MAX_PATH - 13;

std::wstring withoutLimit(const std::wstring& full) {
    if (full.empty() || full.starts_with(L"\\\\?\\") || full.starts_with(L"\\\\.\\")) return full;
    return full.starts_with(L"\\\\") ? L"\\\\?\\UNC" + full.substr(1) : L"\\\\?\\" + full;
}

}  // namespace

std::wstring wideText(std::string_view text) {
    std::wstring wide(text.size(), L'\0');
    auto* const units = reinterpret_cast<unsigned short*>(wide.data());
    wide.resize(widenText(ansiCodePage(), text.data(), text.size(), units, wide.size()));
    return wide;
}

std::string ansiText(std::wstring_view text) {
    return fromUnits(ansiCodePage(), {reinterpret_cast<const unsigned short*>(text.data()), text.size()});
}

std::wstring systemPath(std::string_view path) {
    std::wstring wide = wideText(path);
    const std::wstring full = absolutePath(wide);
    return full.size() < kLongestUsualPath ? wide : withoutLimit(full);
}

std::wstring lastingPath(std::string_view path) {
    const std::wstring full = absolutePath(wideText(path));
    return full.size() < kLongestUsualPath ? full : withoutLimit(full);
}

std::wstring folderPath(std::string_view path) {
    // "C:\" is the root of a drive, "C:" is not.
    std::wstring full = absolutePath(wideText(path));
    while (full.ends_with(L'\\') && !full.ends_with(L":\\"))
        full.pop_back();
    return withoutLimit(full);
}

HMODULE thisModule(ModuleReference reference) noexcept {
    const auto* const address = reinterpret_cast<const wchar_t*>(reinterpret_cast<const void*>(&thisModule));
    HMODULE module = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | static_cast<DWORD>(reference), address, &module);
    return module;
}

void* systemFunction(const char* name, const wchar_t* library) noexcept {
    return reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(library), name));
}

std::wstring environmentVariable(const wchar_t* name) {
    const DWORD room = GetEnvironmentVariableW(name, nullptr, 0);
    std::wstring value(room, L'\0');
    value.resize(room == 0 ? 0 : GetEnvironmentVariableW(name, value.data(), room));
    return value;
}

bool isProcessEnding() noexcept {
    return g_isProcessEnding != nullptr && g_isProcessEnding();
}

}  // namespace KestSupport::platform
