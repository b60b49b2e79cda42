#include "support/program_run.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>

#include "platform/deadline.h"
#include "platform/output_capture.h"
#include "platform/process.h"
#include "platform/wait.h"
#include "text/log/internal_log.h"

namespace KestSupport {
namespace {

using Captures = std::array<platform::OutputCapture, 2>;

// Milliseconds between two looks at the size of the output.
constexpr std::uint32_t kLookAgainAfter = 10;

bool textHasNul(const std::string& text) {
    return text.find('\0') != std::string::npos;
}

// The system would cut a text at a NUL and so run something else.
bool isValid(const KestProgramRun& run) {
    const auto isArgument = [&run](const std::string& text) {
        return !textHasNul(text) && platform::getsUnchanged(run.arguments.front(), text);
    };
    return !run.arguments.empty() && std::all_of(run.arguments.begin(), run.arguments.end(), isArgument) &&
           !textHasNul(run.workingDirectory) &&
           std::all_of(run.environment.begin(), run.environment.end(), [](const auto& variable) {
               return !variable.first.empty() && !textHasNul(variable.first) && !textHasNul(variable.second) &&
                      variable.first.find('=') == std::string::npos;
           });
}

// Returns 0 or the number of the error for which the program was not started.
platform::ErrorCode start(const KestProgramRun& run, platform::Process& program, Captures& captures) {
    if (!isValid(run)) return platform::errorInvalidParameter;
    for (platform::OutputCapture& capture : captures) {
        if (const platform::ErrorCode error = capture.open(); error != 0) return error;
    }
    platform::ProcessRequest request;
    request.commandLine = platform::joinArguments(run.arguments);
    request.workingDirectory = run.workingDirectory;
    request.environment = run.environment;
    request.standardHandles = {platform::kNullDevice, captures[0].handle(), captures[1].handle()};
    request.ownGroup = run.timeout >= 0 || run.outputLimit != 0;
    return program.start(request);
}

// Waits until the program has ended, which sets its exit code. Ends it at the time-out or the limit.
void awaitEnd(const KestProgramRun& run, platform::Process& program, const Captures& captures,
              KestProgramResult& result) {
    const auto end =
        platform::Deadline::after(run.timeout < 0 ? platform::kInfinite : static_cast<std::uint32_t>(run.timeout));
    const std::uint32_t most = run.outputLimit == 0 ? platform::kInfinite : kLookAgainAfter;
    const auto exceeds = [&](const platform::OutputCapture& capture) { return capture.size() > run.outputLimit; };
    for (std::uint32_t rest = end.rest(); !program.wait(std::min(rest, most)); rest = end.rest()) {
        result.timedOut = rest == 0;
        if (result.timedOut || (run.outputLimit != 0 && std::any_of(captures.begin(), captures.end(), exceeds))) {
            program.endGroup();
            program.wait(platform::kInfinite);
            break;
        }
    }
    result.exceededOutput = run.outputLimit != 0 && std::any_of(captures.begin(), captures.end(), exceeds);
}

}  // namespace

KestProgramResult KestRunProgram(const KestProgramRun& run) {
    platform::Process program;
    Captures captures;
    if (const platform::ErrorCode error = start(run, program, captures); error != 0) {
        const std::string failure =
            "KestRunProgram: Could not start " + (run.arguments.empty() ? "" : run.arguments[0]);
        internal::logRecord(internal::LogLevel::failure, failure, " (Error code: ", error, ")");
        throw KestException(failure, static_cast<int>(error));
    }
    KestProgramResult result;
    awaitEnd(run, program, captures, result);
    result.exitCode = program.exitCode();
    const std::size_t most = run.outputLimit == 0 ? std::numeric_limits<std::size_t>::max() : run.outputLimit;
    result.output = captures[0].text(most);
    result.errors = captures[1].text(most);
    return result;
}

std::string KestJoinArguments(const std::vector<std::string>& arguments) {
    return platform::joinArguments(arguments);
}

}  // namespace KestSupport
