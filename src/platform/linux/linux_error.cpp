#include <algorithm>
#include <cerrno>
#include <iterator>
#include <system_error>

#include "platform/common/error_numbers.h"

namespace KestSupport::platform {
namespace {

constexpr ErrorNumber kSystemErrors[] = {
    {errorPathNotFound, ENOTDIR},
    {errorSharingViolation, ETXTBSY},
    {errorDiskFull, EDQUOT},
};

// Contains its text, so that the loader has no pointer to relocate.
struct ErrorText {
    ErrorCode code;
    char text[60];
};

// The codes without an errno value. The C runtime has no text for them.
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

}  // namespace

std::span<const ErrorNumber> systemErrorNumbers() noexcept {
    return kSystemErrors;
}

std::string errorMessage(ErrorCode code) {
    if (const int errnoValue = errnoFromError(code); errnoValue != 0 || code == errorSuccess)
        return std::generic_category().message(errnoValue);
    const auto* const row = std::find_if(std::begin(kErrorTexts), std::end(kErrorTexts),
                                         [&](const ErrorText& each) { return each.code == code; });
    return row == std::end(kErrorTexts) ? std::string() : row->text;
}

}  // namespace KestSupport::platform
