// Error numbers. The library uses those of the platform that its interface was made for (5 is "access denied"). One
// table translates the system's numbers.
//
// Threads: any thread may call these functions.
#pragma once

#include <cstdint>
#include <string>

namespace KestSupport::platform {

using ErrorCode = std::uint32_t;

inline constexpr ErrorCode errorSuccess = 0;
inline constexpr ErrorCode errorInvalidFunction = 1;
inline constexpr ErrorCode errorFileNotFound = 2;
inline constexpr ErrorCode errorPathNotFound = 3;
inline constexpr ErrorCode errorTooManyOpenFiles = 4;
inline constexpr ErrorCode errorAccessDenied = 5;
inline constexpr ErrorCode errorInvalidHandle = 6;
inline constexpr ErrorCode errorNotEnoughMemory = 8;
inline constexpr ErrorCode errorInvalidData = 13;
inline constexpr ErrorCode errorOutOfMemory = 14;
inline constexpr ErrorCode errorNotSameDevice = 17;
inline constexpr ErrorCode errorGeneralFailure = 31;
inline constexpr ErrorCode errorSharingViolation = 32;
inline constexpr ErrorCode errorFileExists = 80;
inline constexpr ErrorCode errorInvalidParameter = 87;
inline constexpr ErrorCode errorBrokenPipe = 109;
inline constexpr ErrorCode errorDiskFull = 112;
inline constexpr ErrorCode errorCallNotImplemented = 120;
inline constexpr ErrorCode errorInsufficientBuffer = 122;
inline constexpr ErrorCode errorInvalidName = 123;
inline constexpr ErrorCode errorModuleNotFound = 126;
inline constexpr ErrorCode errorProcedureNotFound = 127;
inline constexpr ErrorCode errorDirectoryNotEmpty = 145;
inline constexpr ErrorCode errorBusy = 170;
inline constexpr ErrorCode errorAlreadyExists = 183;
inline constexpr ErrorCode errorBadExecutable = 193;
inline constexpr ErrorCode errorFileNameTooLong = 206;
inline constexpr ErrorCode errorMoreData = 234;
inline constexpr ErrorCode errorWaitTimeout = 258;
inline constexpr ErrorCode errorCannotComplete = 1003;
inline constexpr ErrorCode errorDependentServicesRunning = 1051;
inline constexpr ErrorCode errorInvalidServiceControl = 1052;
inline constexpr ErrorCode errorServiceRequestTimeout = 1053;
inline constexpr ErrorCode errorServiceNoThread = 1054;
inline constexpr ErrorCode errorServiceDatabaseLocked = 1055;
inline constexpr ErrorCode errorServiceAlreadyRunning = 1056;
inline constexpr ErrorCode errorInvalidServiceAccount = 1057;
inline constexpr ErrorCode errorServiceDisabled = 1058;
inline constexpr ErrorCode errorCircularDependency = 1059;
inline constexpr ErrorCode errorServiceDoesNotExist = 1060;
inline constexpr ErrorCode errorServiceCannotAcceptControl = 1061;
inline constexpr ErrorCode errorServiceNotActive = 1062;
inline constexpr ErrorCode errorFailedServiceControllerConnect = 1063;
inline constexpr ErrorCode errorExceptionInService = 1064;
inline constexpr ErrorCode errorServiceSpecific = 1066;
inline constexpr ErrorCode errorProcessAborted = 1067;
inline constexpr ErrorCode errorServiceDependencyFail = 1068;
inline constexpr ErrorCode errorServiceStartHang = 1070;
inline constexpr ErrorCode errorServiceMarkedForDelete = 1072;
inline constexpr ErrorCode errorServiceExists = 1073;
inline constexpr ErrorCode errorServiceDependencyDeleted = 1075;
inline constexpr ErrorCode errorServiceNeverStarted = 1077;
inline constexpr ErrorCode errorDuplicateServiceName = 1078;
inline constexpr ErrorCode errorTimeout = 1460;

/// Returns the code for an errno value: errorSuccess for 0, errorGeneralFailure for a value without a code.
ErrorCode errorFromErrno(int errnoValue) noexcept;

/// Returns the errno value for a code: 0 for success and for a code without one.
int errnoFromError(ErrorCode code) noexcept;

/// Returns the text for a code, without a line end; empty if it has none.
std::string errorMessage(ErrorCode code);

}  // namespace KestSupport::platform
