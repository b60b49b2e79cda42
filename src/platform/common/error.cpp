// The table of error numbers, searched in both directions.
#include <algorithm>
#include <cerrno>
#include <iterator>

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
    {errorSharingViolation, ETXTBSY},
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

template <typename Table, typename Predicate>
auto findRow(const Table& table, Predicate predicate) noexcept {
    const auto row = std::find_if(std::begin(table), std::end(table), predicate);
    return row == std::end(table) ? nullptr : row;
}

}  // namespace

ErrorCode errorFromErrno(int errnoValue) noexcept {
    if (errnoValue == 0) return errorSuccess;
    const auto isOurs = [&](const ErrorNumber& row) { return row.errnoValue == errnoValue; };
    if (const auto* const row = findRow(kErrorNumbers, isOurs)) return row->code;
    const std::span<const ErrorNumber> others = systemErrorNumbers();
    const auto other = std::find_if(others.begin(), others.end(), isOurs);
    return other == others.end() ? errorGeneralFailure : other->code;
}

int errnoFromError(ErrorCode code) noexcept {
    const auto isOurs = [&](const ErrorNumber& row) { return row.code == code; };
    if (const auto* const row = findRow(kErrorNumbers, isOurs)) return row->errnoValue;
    const std::span<const ErrorNumber> others = systemErrorNumbers();
    const auto other = std::find_if(others.begin(), others.end(), isOurs);
    return other == others.end() ? 0 : other->errnoValue;
}

}  // namespace KestSupport::platform
