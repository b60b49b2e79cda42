#include "failure.h"

#include <cctype>

#include "text.h"

namespace kestsc {
namespace {

namespace platform = KestSupport::platform;
using Cause = KestSupport::KestServiceControlException;

// A service that does not answer the manager counts as timed out, as one that does not reach its state.
Cause causeOf(ErrorCode error) {
    if (error == platform::errorServiceRequestTimeout) return {Cause::TIMED_OUT, error};
    if (error == platform::errorCallNotImplemented) return {Cause::NOT_IMPLEMENTED, error};
    return {Cause::OS_ERROR, error};
}

std::string reasonOf(ErrorCode error) {
    return error == platform::errorCallNotImplemented ? "not available on this platform (120)" : errorText(error);
}

}  // namespace

Failure::Failure(const Task& task, const Cause& cause, const std::string& reason)
    : std::runtime_error(printable(task.operation + (task.service.empty() ? "" : " " + task.service) + ": " + reason)),
      m_task(task),
      m_reason(reason),
      m_cause(cause) {}

Failure::Failure(const Task& task, ErrorCode error) : Failure(task, causeOf(error), reasonOf(error)) {}

Failure::Failure(const Task& task, ErrorCode error, const std::string& reason)
    : Failure(task, causeOf(error), reason) {}

Failure Failure::timedOut(const Task& task, const std::string& reason) {
    return {task, Cause(Cause::TIMED_OUT), reason};
}

ExitCode Failure::exitCode() const {
    if (error() == platform::errorServiceDoesNotExist) return kExitNotInstalled;
    switch (statusCode()) {
        case 270:
            return kExitAccessDenied;
        case 305:
            return kExitDependentsRunning;
        case 3:
            return kExitTimedOut;
        case 1:
            return kExitNotImplemented;
        default:
            return kExitFailed;
    }
}

void require(const Task& task, ErrorCode error) {
    if (error != 0) throw Failure(task, error);
}

std::string errorText(ErrorCode error) {
    std::string text = platform::errorMessage(error);
    if (text.empty()) return "error " + std::to_string(error);
    if (text.back() == '.') text.pop_back();
    const auto first = static_cast<unsigned char>(text.front());
    text.front() = static_cast<char>(std::tolower(first));
    return text + " (" + std::to_string(error) + ')';
}

}  // namespace kestsc
