#include "platform/common/error_numbers.h"
#include "platform/windows/windows_api.h"

namespace KestSupport::platform {
namespace {

// As the C runtime translates them, which has ENOENT for a path that is not found. But it has no errno values for a
// file in place of a folder, for one of the two errors of a full disk, and for a pipe without a reader.
constexpr ErrorNumber kRuntimeErrors[] = {
    {errorPathNotFound, ENOENT},    {errorInvalidName, ENOENT},
    {ERROR_DIRECTORY, ENOTDIR},     {errorSharingViolation, EACCES},
    {ERROR_INVALID_DRIVE, ENOENT},  {ERROR_BAD_NETPATH, ENOENT},
    {ERROR_BAD_NET_NAME, ENOENT},   {ERROR_BAD_PATHNAME, ENOENT},
    {ERROR_LOCK_VIOLATION, EACCES}, {ERROR_CURRENT_DIRECTORY, EACCES},
    {ERROR_WRITE_PROTECT, EACCES},  {ERROR_HANDLE_DISK_FULL, ENOSPC},
    {ERROR_NO_DATA, EPIPE},
};

}  // namespace

std::span<const ErrorNumber> systemErrorNumbers() noexcept {
    return kRuntimeErrors;
}

std::string errorMessage(ErrorCode code) {
    constexpr DWORD flags = FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;
    wchar_t* text = nullptr;
    const DWORD length = FormatMessageW(flags, nullptr, code, 0, reinterpret_cast<wchar_t*>(&text), 0, nullptr);
    const LocalMemory<wchar_t> owner(text);
    const std::wstring_view all(text, length);
    return ansiText(all.substr(0, all.find_last_not_of(L"\r\n ") + 1));
}

}  // namespace KestSupport::platform
