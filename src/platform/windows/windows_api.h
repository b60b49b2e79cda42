// The system's interface as the back end uses it: UTF-16 texts, and errors as errno values where a contract has those.
#pragma once

#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/common/fault_seam.h"
#include "platform/error.h"

namespace KestSupport::platform {

/// A text of the library, in the ANSI code page, for the system; and the reverse.
std::wstring wideText(std::string_view text);
std::string ansiText(std::wstring_view text);

/// A path for the system. One that is too long for the usual limit is made absolute and gets the prefix "\\?\", which
/// lifts the limit.
std::wstring systemPath(std::string_view path);
/// The same for a folder below which folders of any depth follow: always without the limit. A separator at the end is
/// removed, since it would make the system follow a link.
std::wstring folderPath(std::string_view path);

/// The module that contains this code: the library, or the program that contains it.
enum class ModuleReference : DWORD {
    none = GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
    forEver = GET_MODULE_HANDLE_EX_FLAG_PIN,  ///< the module stays loaded
};
HMODULE thisModule(ModuleReference reference) noexcept;

/// A function of ntdll, or null. Takes the lock of the loader.
void* systemFunction(const char* name) noexcept;

/// The environment variable in this process; empty when it is not set.
std::wstring environmentVariable(const wchar_t* name);

/// True once the process ends: the system has ended all threads but one, and unloads the libraries.
bool isProcessEnding() noexcept;

/// Makes a call that returns false and sets the last error when it fails. Returns errorSuccess or the error's number.
template <typename Call>
ErrorCode errorCall(const char* step, Call&& call) {
    if (const int injected = injectedFault(step); injected != 0) return errorFromErrno(injected);
    return call() ? errorSuccess : GetLastError();
}

/// The same, but returns the errno value of the error.
template <typename Call>
int errnoCall(const char* step, Call&& call) {
    const ErrorCode error = errorCall(step, call);
    if (error == errorSuccess) return 0;
    const int number = errnoFromError(error);
    return number == 0 ? EIO : number;
}

/// A handle of the system with an owner. Null and INVALID_HANDLE_VALUE mean that there is none.
class SystemHandle {
  public:
    SystemHandle() noexcept = default;
    explicit SystemHandle(HANDLE handle) noexcept : m_handle(handle == INVALID_HANDLE_VALUE ? nullptr : handle) {}
    SystemHandle(SystemHandle&& other) noexcept : m_handle(other.release()) {}
    SystemHandle& operator=(SystemHandle&& other) noexcept {
        if (this != &other) {
            close();
            m_handle = other.release();
        }
        return *this;
    }
    ~SystemHandle() { close(); }

    bool isOpen() const noexcept { return m_handle != nullptr; }
    HANDLE get() const noexcept { return m_handle; }
    HANDLE release() noexcept {
        const HANDLE handle = m_handle;
        m_handle = nullptr;
        return handle;
    }
    void close() noexcept {
        if (m_handle != nullptr) CloseHandle(release());
    }

  private:
    HANDLE m_handle = nullptr;
};

}  // namespace KestSupport::platform
