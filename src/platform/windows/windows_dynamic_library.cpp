#include "platform/dynamic_library.h"

#include "platform/windows/windows_api.h"

namespace KestSupport::platform {
namespace {

// Without it, the system may ask the user about a damaged file or a missing disk.
class NoDialogs {
  public:
    NoDialogs() noexcept { SetThreadErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX, &m_before); }
    NoDialogs(const NoDialogs&) = delete;
    NoDialogs& operator=(const NoDialogs&) = delete;
    ~NoDialogs() { SetThreadErrorMode(m_before, nullptr); }

  private:
    DWORD m_before = 0;
};

LibraryHandle refuse(ErrorCode error, std::string& message) {
    message = errorMessage(error);
    return nullptr;
}

}  // namespace

LibraryHandle loadLibrary(const std::string& name, std::string& message) {
    if (const int error = injectedFault("loadLibrary"); error != 0) return refuse(errorFromErrno(error), message);
    std::wstring path = wideText(name);
    // Elsewhere the loader takes '/' for a part of the name.
    for (wchar_t& unit : path) {
        if (unit == L'/') unit = L'\\';
    }
    const NoDialogs quiet;
    const HMODULE module = LoadLibraryW(path.c_str());
    return module != nullptr ? static_cast<LibraryHandle>(module) : refuse(lastError(), message);
}

LibraryHandle loadAgain(LibraryHandle library, std::string& message) {
    if (const int error = injectedFault("loadLibrary"); error != 0) return refuse(errorFromErrno(error), message);
    HMODULE module = nullptr;
    const auto* const address = static_cast<const wchar_t*>(library);
    if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, address, &module))
        return refuse(lastError(), message);
    return module;
}

void* findSymbol(LibraryHandle library, const std::string& name) noexcept {
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(library), name.c_str()));
}

void unloadLibrary(LibraryHandle library) noexcept {
    FreeLibrary(static_cast<HMODULE>(library));
}

}  // namespace KestSupport::platform
