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
/// The same, and always absolute: the current folder may change before the last use of the path.
std::wstring lastingPath(std::string_view path);
/// The same for a folder below which folders of any depth follow: always without the limit. A separator at the end is
/// removed, since it would make the system follow a link.
std::wstring folderPath(std::string_view path);

/// The longest path of the system, with its end, and the sharing under which others may rename and replace an open
/// file.
inline constexpr std::size_t kLongestPath = 32768;
inline constexpr DWORD kAnySharing = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

/// The most bytes that one call transfers. The system counts them with 32 bits.
inline constexpr std::size_t kMostAtOnce = std::size_t{1} << 30;

inline std::uint64_t joined(DWORD high, DWORD low) noexcept {
    return std::uint64_t{high} << 32 | low;
}
/// Units of 100 nanoseconds since 1970-01-01 00:00:00 UTC. The system counts from the beginning of 1601.
inline std::int64_t calendarUnits(FILETIME time) noexcept {
    return static_cast<std::int64_t>(joined(time.dwHighDateTime, time.dwLowDateTime)) - 116'444'736'000'000'000;
}

/// The module that contains this code: the library, or the program that contains it.
enum class ModuleReference : DWORD {
    none = GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
    forEver = GET_MODULE_HANDLE_EX_FLAG_PIN,  ///< the module stays loaded
};
HMODULE thisModule(ModuleReference reference) noexcept;

/// A function of a library that each program has, or null. Takes the lock of the loader, for which a thread with a lock
/// of our library must not wait.
void* systemFunction(const char* name, const wchar_t* library = L"ntdll.dll") noexcept;

/// The environment variable in this process; empty when it is not set.
std::wstring environmentVariable(const wchar_t* name);

/// True once the process ends: the system has ended all threads but one, and unloads the libraries.
bool isProcessEnding() noexcept;

/// Why the last call failed; never errorSuccess, which some calls leave.
inline ErrorCode lastError() noexcept {
    const ErrorCode error = GetLastError();
    return error == errorSuccess ? errorGeneralFailure : error;
}

/// Makes a call that returns false and sets the last error when it fails. Returns errorSuccess or the error's number.
template <typename Call>
ErrorCode errorCall(const char* step, Call&& call) {
    if (const int injected = injectedFault(step); injected != 0) return errorFromErrno(injected);
    return call() ? errorSuccess : lastError();
}

/// The same, but returns the errno value of the error.
template <typename Call>
int errnoCall(const char* step, Call&& call) {
    const ErrorCode error = errorCall(step, call);
    if (error == errorSuccess) return 0;
    const int number = errnoFromError(error);
    return number == 0 ? EIO : number;
}

/// The outcome of a function that sets errno when it fails.
inline bool failWith(int error) noexcept {
    errno = error;
    return false;
}

}  // namespace KestSupport::platform
