// What a command tells: lines for people as things happen, or one JSON document at the end; and the exit code.
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

    /// What a command shows at its end, on standard output, in the form that asJson tells; unless something failed.
    void show(const std::string& text) { m_shown = text; }

    /// An operation has succeeded; the outcome is the end of a sentence that begins with the service: "started".
    void succeed(const Task& task, const std::string& outcome);
    /// An operation has failed: one line on standard error, in either form. The first failure gives the exit code.
    void fail(const Failure& failure);

    /// The exit code of what is no failure, such as the status of a service that is stopped.
    void setExitCode(ExitCode code) { m_exitCode = code; }

    /// Writes what is still to be written and gives the exit code.
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

/// One line on standard error, behind the program's name. The line is printable.
void complain(const std::string& line);

}  // namespace kestsc
