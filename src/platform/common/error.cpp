#include <algorithm>
#include <cerrno>
#include <iterator>
#include <system_error>

#include "platform/common/error_numbers.h"

namespace KestSupport::platform {
namespace {

// The first row with an errno value gives its code, the first row with a code gives its errno value.
constexpr ErrorNumber kErrorNumbers[] = {
    {errorInvalidFunction, ENOTTY},
    {errorFileNotFound, ENOENT},
    {errorPathNotFound, ENOTDIR},
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

struct ErrorText {
    ErrorCode code;
    const char* text;
};

// The codes that no errno value stands for: the C runtime has no text for them.
constexpr ErrorText kErrorTexts[] = {
    {errorInvalidData, "The data is not valid."},
    {errorGeneralFailure, "The operation failed."},
    {errorInvalidName, "The name is not valid."},
    {errorModuleNotFound, "The library was not found."},
    {errorProcedureNotFound, "The library has no such function."},
    {errorCannotComplete, "The operation cannot be completed."},
    {errorDependentServicesRunning, "Other running services depend on the service."},
    {errorInvalidServiceControl, "The service does not take this control."},
    {errorServiceRequestTimeout, "The service did not answer in time."},
    {errorServiceNoThread, "No thread could be created for the service."},
    {errorServiceDatabaseLocked, "The service database is locked."},
    {errorServiceAlreadyRunning, "The service is already running."},
    {errorInvalidServiceAccount, "The account of the service is not valid."},
    {errorServiceDisabled, "The service is disabled."},
    {errorCircularDependency, "The services depend on each other in a circle."},
    {errorServiceDoesNotExist, "The service is not installed."},
    {errorServiceCannotAcceptControl, "The service cannot take controls at this time."},
    {errorServiceNotActive, "The service is not running."},
    {errorFailedServiceControllerConnect, "The process was not started as a service."},
    {errorExceptionInService, "The service threw an exception."},
    {errorServiceSpecific, "The service ended with an error of its own."},
    {errorProcessAborted, "The process ended unexpectedly."},
    {errorServiceDependencyFail, "A service that this service depends on failed to start."},
    {errorServiceStartHang, "The service did not finish starting."},
    {errorServiceMarkedForDelete, "The service is marked for deletion."},
    {errorServiceExists, "The service is already installed."},
    {errorServiceDependencyDeleted, "A service that this service depends on is not installed."},
    {errorServiceNeverStarted, "The service has never been started."},
    {errorDuplicateServiceName, "The name is already used by another service."},
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
    const auto* row = findRow(kErrorNumbers, [&](const ErrorNumber& r) { return r.code == code; });
    return row == nullptr ? 0 : row->errnoValue;
}

std::string errorMessage(ErrorCode code) {
    if (const int errnoValue = errnoFromError(code); errnoValue != 0) {
        return std::generic_category().message(errnoValue);
    }
    const auto* row = findRow(kErrorTexts, [&](const ErrorText& r) { return r.code == code; });
    return row == nullptr ? std::string() : row->text;
}

}  // namespace KestSupport::platform
