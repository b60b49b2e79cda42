// The system's interface as the back end uses it: UTF-16 texts, and errors as errno values where a contract has those.
#pragma once

#include <cerrno>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/common/fault_seam.h"
#include "platform/error.h"
#include "platform/windows/windows_handle.h"

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

}  // namespace KestSupport::platform
