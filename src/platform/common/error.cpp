// The table of error numbers, searched in both directions.
#include <algorithm>
#include <cerrno>

#include "platform/common/error_numbers.h"

namespace KestSupport::platform {
namespace {

// The first row with an errno value determines its code. The first row with a code determines its errno value.
constexpr ErrorNumber kErrorNumbers[] = {
    {errorInvalidFunction, ENOTTY},
    {errorFileNotFound, ENOENT},
    {errorTooManyOpenFiles, EMFILE},
    {errorTooManyOpenFiles, ENFILE},
    {errorAccessDenied, EACCES},
    {errorAccessDenied, EPERM},
    {errorAccessDenied, EROFS},
    {errorAccessDenied, EISDIR},
    {errorInvalidHandle, EBADF},
    {errorNotEnoughMemory, ENOMEM},
    {errorOutOfMemory, ENOMEM},
    {errorNotSameDevice, EXDEV},
    {errorFileExists, EEXIST},
    {errorAlreadyExists, EEXIST},
    {errorInvalidParameter, EINVAL},
    {errorBrokenPipe, EPIPE},
    {errorDiskFull, ENOSPC},
    {errorCallNotImplemented, ENOSYS},
    {errorInsufficientBuffer, ERANGE},
    {errorDirectoryNotEmpty, ENOTEMPTY},
    {errorBusy, EBUSY},
    {errorBadExecutable, ENOEXEC},
    {errorFileNameTooLong, ENAMETOOLONG},
    {errorMoreData, EMSGSIZE},
    {errorWaitTimeout, ETIMEDOUT},
    {errorTimeout, ETIMEDOUT},
};

// Returns the first row, or null if there is none.
template <typename Predicate>
const ErrorNumber* findRow(Predicate isWanted) noexcept {
    using Rows = std::span<const ErrorNumber>;
    for (const Rows rows : {Rows(kErrorNumbers), systemErrorNumbers()}) {
        const auto row = std::find_if(rows.begin(), rows.end(), isWanted);
        if (row != rows.end()) return &*row;
    }
    return nullptr;
}

}  // namespace

ErrorCode errorFromErrno(int errnoValue) noexcept {
    if (errnoValue == 0) return errorSuccess;
    const auto* const row = findRow([&](const ErrorNumber& each) { return each.errnoValue == errnoValue; });
    return row == nullptr ? errorGeneralFailure : row->code;
}

int errnoFromError(ErrorCode code) noexcept {
    const auto* const row = findRow([&](const ErrorNumber& each) { return each.code == code; });
    return row == nullptr ? 0 : row->errnoValue;
}

}  // namespace KestSupport::platform
