// The output of a command: a line for each result as it happens, or one JSON document at the end; and the exit code.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "failure.h"

namespace kestsc {

class Report {
  public:
    explicit Report(bool asJson) : m_asJson(asJson) {}

    bool asJson() const { return m_asJson; }

    /// Sets the text that finish writes to standard output unless an operation failed. It is JSON if asJson is true.
    void show(const std::string& text) { m_shown = text; }

    /// Records a success. The outcome ends a line that begins with the service's name: "web: started".
    void succeed(const Task& task, const std::string& outcome);
    /// Records a failure and writes it to standard error, with JSON too. The first failure decides the exit code.
    void fail(const Failure& failure);

    /// Writes text to standard output at once, unless as JSON. Returns whether all output was written until now.
    bool print(const std::string& text);

    /// Sets the exit code of status for a stopped service, unless an operation has failed.
    void setStopped() {
        if (!m_hasFailed) m_exitCode = kExitNotRunning;
    }

    /// Writes the pending output and returns the exit code.
    ExitCode finish();

  private:
    void write(const std::string& text);

    const bool m_asJson;
    bool m_hasFailed = false;
    ErrorCode m_writeError = 0;
    ExitCode m_exitCode = kExitSuccess;
    std::optional<std::string> m_shown;
    std::vector<std::string> m_results;  // JSON
};

/// Runs the operation for one service and returns whether it succeeded. A failure is reported, so the caller continues
/// with the next service. A request to end this program reaches the caller.
template <typename Operation>
bool attempt(Report& report, Operation operation) {
    try {
        operation();
        return true;
    } catch (const Interrupted&) {
        throw;
    } catch (const Failure& failure) {
        report.fail(failure);
        return false;
    }
}

/// Writes the program's name and the printable line to standard error.
void complain(const std::string& line);

}  // namespace kestsc
