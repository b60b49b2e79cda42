#include <cstdint>

#include "platform/files.h"
#include "platform/process.h"
#include "platform/wait.h"
#include "support/utilities.h"
#include "text/log/internal_log.h"

namespace KestSupport {
namespace {

constexpr internal::LogLevel kProcessTrace = internal::LogLevel::trace;
constexpr internal::LogLevel kLogRun = internal::LogLevel::operation;
constexpr internal::LogLevel kLogFailure = internal::LogLevel::failure;
constexpr std::uint32_t kNoWindow = 0x08000000;  // the flag of the record

void* handleOf(std::intptr_t number) noexcept {
    return reinterpret_cast<void*>(number);  // NOLINT(performance-no-int-to-ptr): callers hold handles as pointers
}

void store(int* target, int value) noexcept {
    if (target != nullptr) *target = value;
}

// Opens a command that is a document with the desktop. Returns whether the call counts as a success.
bool openInstead(const std::string& commandLine, platform::ErrorCode error, int* exitCode) {
    store(exitCode, -1);
    internal::logRecord(kLogFailure, "KestExecuteProgram: Failed to start process. Error code :", error);
    if (error != platform::errorBadExecutable) return false;
    // Windows also finds a file whose path contains blanks without quotes.
    const bool isWhole = platform::pathExists(commandLine);
    const platform::ErrorCode refusal =
        platform::openDocument(isWhole ? commandLine : platform::splitArguments(commandLine).front());
    // The record shows results as ShellExecute returns them: a number above 32 is a success.
    constexpr platform::ErrorCode kOpened = 42;
    internal::logRecord(kLogFailure, "KestExecuteProgram: Process started using ", "ShellExecute. ",
                        refusal == 0 ? kOpened : refusal, " (Error code: ", refusal, ")");
    store(exitCode, 0);
    return true;
}

}  // namespace

bool KestExecuteProgram(const std::string& commandLine, bool wait, void** process, int* exitCode) {
    internal::logRecord(kLogRun, "KestExecuteProgram: Execution Started.");
    void* const own = handleOf(platform::kInheritHandle);
    return KestExecuteProgramEx(commandLine, own, own, wait, process, exitCode);
}

bool KestExecuteProgramEx(const std::string& commandLine, void* standardInput, void* standardOutput, bool wait,
                          void** process, int* exitCode) {
    internal::logRecord(kLogRun, "KestExecuteProgramEx: Execution Started.");
    const std::uint32_t flags = internal::currentLogLevel() > static_cast<int>(kLogRun) ? 0 : kNoWindow;
    internal::logRecord(kProcessTrace, "KestExecuteProgram: nCreateFlag = ", flags);
    store(exitCode, 0);
    if (process != nullptr) *process = nullptr;

    platform::ProcessRequest request;
    request.commandLine = commandLine;
    request.noWindow = flags != 0;
    request.standardHandles = {reinterpret_cast<std::intptr_t>(standardInput),
                               reinterpret_cast<std::intptr_t>(standardOutput), platform::kInheritHandle};
    request.detached = !wait && process == nullptr;
    request.wantsHandle = !wait && process != nullptr;
    platform::Process child;
    if (const platform::ErrorCode error = child.start(request); error != 0) {
        return openInstead(commandLine, error, exitCode);
    }
    if (process != nullptr) {
        const std::intptr_t handle = child.duplicateHandle();
        *process = handle == platform::kInheritHandle ? nullptr : handleOf(handle);
    }
    if (wait) {
        internal::logRecord(kLogRun, "KestExecuteProgram: Wait for process to finish.");
        // A blocking wait: a poll every 100 ms would add 50 ms on average.
        child.wait(platform::kInfinite);
        store(exitCode, child.exitCode());
        internal::logRecord(kLogRun, "KestExecuteProgram: Process done.");
    }
    return true;
}

}  // namespace KestSupport
