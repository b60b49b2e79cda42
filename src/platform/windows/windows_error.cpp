#include "platform/common/error_numbers.h"
#include "platform/windows/windows_api.h"

namespace KestSupport::platform {
namespace {

constexpr ErrorCode kErrorDirectory = ERROR_DIRECTORY;  // a file where a folder is asked for

// The C runtime gives ENOENT for a path that is not found, and reports no file in place of a folder.
constexpr ErrorNumber kRuntimeErrors[] = {
    {errorFileNotFound, ENOENT}, {errorPathNotFound, ENOENT},     {errorInvalidName, ENOENT},
    {kErrorDirectory, ENOTDIR},  {errorSharingViolation, EACCES},
};

}  // namespace

std::span<const ErrorNumber> systemErrorNumbers() noexcept {
    return kRuntimeErrors;
}

std::string errorMessage(ErrorCode code) {
    if (code == errorSuccess) return {};
    constexpr DWORD flags = FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;
    wchar_t* text = nullptr;
    const DWORD length = FormatMessageW(flags, nullptr, code, 0, reinterpret_cast<wchar_t*>(&text), 0, nullptr);
    const std::wstring_view all(text, length);
    const std::string message = ansiText(all.substr(0, all.find_last_not_of(L"\r\n ") + 1));
    LocalFree(text);
    return message;
}

}  // namespace KestSupport::platform
