// What went wrong: with which service, in which operation, why; and the exit code that tells a script.
#pragma once

#include <stdexcept>
#include <string>

#include "platform/error.h"
#include "support/service_control.h"

namespace kestsc {

using KestSupport::platform::ErrorCode;

enum ExitCode : int {
    kExitSuccess = 0,
    kExitFailed = 1,  ///< any failure that has no code of its own
    kExitUsage = 2,
    kExitNotRunning = 3,    ///< of status: the service is stopped
    kExitNotInstalled = 4,  ///< there is no such service
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

/// What is being done, and to which service; empty when it is done to none in particular.
struct Task {
    std::string operation;
    std::string service;
};

/// An operation failed. what() is "OPERATION SERVICE: REASON", printable.
class Failure : public std::runtime_error {
  public:
    /// Without a reason it is the platform's text for the error.
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

/// The user, or a supervisor, has asked this program to end; what the operation had begun is undone.
class Interrupted : public Failure {
  public:
    /// The request is the number that platform/interruption.h gives.
    Interrupted(const Task& task, const std::string& reason, int request)
        : Failure(task, KestSupport::platform::errorProcessAborted, reason), m_request(request) {}

    int request() const { return m_request; }

  private:
    int m_request;
};

/// Throws a Failure unless the error is 0.
void require(const Task& task, ErrorCode error);

/// The platform's text for a code as a part of a sentence, and the code: "permission denied (5)".
std::string errorText(ErrorCode error);

}  // namespace kestsc
