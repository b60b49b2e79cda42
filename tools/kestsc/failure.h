// Failures: the operation, the service, the reason, and the exit code for scripts.
#pragma once

#include <stdexcept>
#include <string>

#include "platform/error.h"
#include "support/service_control.h"

namespace kestsc {

using KestSupport::platform::ErrorCode;

enum ExitCode : int {
    kExitSuccess = 0,
    kExitFailed = 1,  ///< any failure without another code
    kExitUsage = 2,
    kExitNotRunning = 3,    ///< status only: the service is stopped
    kExitNotInstalled = 4,  ///< no service has that name
    kExitAccessDenied = 5,
    kExitTimedOut = 6,
    kExitDependentsRunning = 7,
    kExitNotImplemented = 8,
};

/// The command line cannot be used. The text is one line and printable.
class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// An operation and its service. The name is empty when the operation concerns all services.
struct Task {
    std::string operation;
    std::string service;
};

/// An operation failed. what() is "OPERATION SERVICE: REASON", printable.
class Failure : public std::runtime_error {
  public:
    /// Without a reason the platform's text for the error is used.
    Failure(const Task& task, ErrorCode error);
    Failure(const Task& task, ErrorCode error, const std::string& reason);
    static Failure timedOut(const Task& task, const std::string& reason);

    const Task& task() const { return m_task; }
    const std::string& reason() const { return m_reason; }
    /// The platform's error number; 0 for a time-out.
    ErrorCode error() const { return m_cause.GetOsErrorNumber(); }
    /// The status code of the management interface: 270, 305, 3, 1 or -1.
    int statusCode() const { return m_cause.MapErrorToSmStatusCode(); }
    ExitCode exitCode() const;

  private:
    using Cause = KestSupport::KestServiceControlException;
    Failure(const Task& task, const Cause& cause, const std::string& reason);

    Task m_task;
    std::string m_reason;
    Cause m_cause;
};

/// The user or a supervisor asked this program to end. The operation was undone.
class Interrupted : public Failure {
  public:
    /// `request` is a number of platform/interruption.h.
    Interrupted(const Task& task, const std::string& reason, int request)
        : Failure(task, KestSupport::platform::errorProcessAborted, reason), m_request(request) {}

    int request() const { return m_request; }

  private:
    int m_request;
};

/// Throws a Failure unless the error is 0.
void require(const Task& task, ErrorCode error);

/// Returns the platform's text for a code, ready for the middle of a sentence, and the code: "permission denied (5)".
std::string errorText(ErrorCode error);

}  // namespace kestsc
