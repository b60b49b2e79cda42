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

    /// Sets an exit code that is not a failure's, such as that of status for a stopped service.
    void setExitCode(ExitCode code) { m_exitCode = code; }

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

/// Writes the program's name and the printable line to standard error.
void complain(const std::string& line);

}  // namespace kestsc
