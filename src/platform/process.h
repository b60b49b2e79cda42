// Child processes: taking command lines apart and putting them together, starting a program, and learning of its end.
//
// A child gets its three standard handles, the environment and the working directory, and nothing else: whatever other
// files this process has open stay here. It starts with no signal blocked.
//
// Threads: a Process is for one thread at a time; everything else may be called by any thread. The environment must not
// be changed while a process is started.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/error.h"

namespace KestSupport::platform {

/// The program and its arguments that a command line stands for, by the platform's quoting rules. With a POSIX back end
/// these are the shell's, without anything that a shell would expand:
///   - blanks, tabs and line feeds separate;
///   - single quotes keep all between them;
///   - double quotes keep all but a backslash in front of ", \, $, ` or a line feed;
///   - a backslash elsewhere keeps the character behind it; together with a line feed it vanishes.
/// A quote that is never closed lasts to the end; a backslash at the end stands for itself.
std::vector<std::string> splitArguments(std::string_view commandLine);

/// The argument, which has no NUL, as splitArguments and the started program will read it.
std::string quoteArgument(std::string_view argument);

/// The command line that splitArguments makes these arguments of.
std::string joinArguments(const std::vector<std::string>& arguments);

/// The command line with quotes around the program's path, where that has blanks and stands without them, with the
/// arguments after it. The longest path that is a file is taken for the program: what another user puts at a shorter
/// one is not what was meant. Any other command line, and one with a relative path, stays as it is.
std::string quoteProgram(const std::string& commandLine);

/// What a child may get as a standard handle in place of a handle of ours, which is a descriptor's number on POSIX.
inline constexpr std::intptr_t kInheritHandle = -1;  ///< the same as this process has
inline constexpr std::intptr_t kNullDevice = -2;     ///< reads nothing, swallows everything

struct ProcessRequest {
    /// The program is looked for along PATH when its name has no separator. A relative path is this process's.
    std::string commandLine;
    std::string workingDirectory;  ///< empty: this process's
    /// Name and value, set in addition to this process's environment.
    std::vector<std::pair<std::string, std::string>> environment;
    /// Standard input, output and error. Handles stay the caller's.
    std::array<std::intptr_t, 3> standardHandles{kInheritHandle, kInheritHandle, kInheritHandle};
    /// The program belongs to no console, does not end with this process, and its end leaves nothing behind. What it
    /// ends with is not told.
    bool detached = false;
    /// The caller asks for the handle and does not wait here. On a system that gives no handles no caller could wait
    /// for the program, so it is then started as a detached one.
    bool wantsHandle = false;
    /// A detached program starts with the file mode mask 022, each signal with its default effect, and, where this
    /// process may set it, the usual priority, whatever this process has.
    bool usualSurroundings = false;
    /// Called with the process number of a detached program as soon as it runs, before start returns. The caller is a
    /// process in between, which does not end with this one: the function makes system calls only.
    std::function<void(std::uint32_t)> announce = {};
};

/// What exitCode is for a program whose end the system did not report here: to another part of this process, which
/// waits for any child, or to none, since this process ignores the end of its children (SIGCHLD).
inline constexpr int kExitUnknown = std::numeric_limits<int>::min();

/// A program that was started. Whoever starts one that is not detached waits for it, or takes its handle and does so
/// with the means of the system; else its end stays on the system's books until this process ends.
class Process {
  public:
    Process() noexcept = default;
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;
    Process(Process&& other) noexcept { swap(other); }
    Process& operator=(Process&& other) noexcept {
        swap(other);
        return *this;
    }
    /// Lets go of the program, which runs on.
    ~Process();

    /// Starts a program; the object has none yet. The result is 0 or an error number: errorBadExecutable for a file
    /// that is no program, errorInvalidParameter for a command line without a word. Blocks until the program's file has
    /// been loaded or refused.
    ErrorCode start(const ProcessRequest& request);

    /// Waits for the end, at most so many milliseconds (kInfinite of wait.h: without limit). Whether it has come; 0
    /// asks.
    bool wait(std::uint32_t timeout) noexcept;

    /// Once wait has told the end: the program's exit code; minus the number of the signal that ended it; kExitUnknown
    /// for a detached one.
    int exitCode() const noexcept { return m_exitCode; }

    /// The system's number of the process; 0 without a program.
    std::uint32_t id() const noexcept { return m_id; }

    /// The system's handle of the process, with POSIX a close-on-exec process descriptor above 2. It is the caller's,
    /// who closes it; to be asked for before the end was waited for. kInheritHandle when the system gives none.
    std::intptr_t duplicateHandle() noexcept;

  private:
    void swap(Process& other) noexcept {
        std::swap(m_id, other.m_id);
        std::swap(m_handle, other.m_handle);
        std::swap(m_detached, other.m_detached);
        std::swap(m_ended, other.m_ended);
        std::swap(m_exitCode, other.m_exitCode);
    }
    bool askForEnd(bool block) noexcept;
    void sleepUntilEnd(std::uint32_t timeout) noexcept;

    std::uint32_t m_id = 0;
    std::intptr_t m_handle = kInheritHandle;  // made when it is needed
    bool m_detached = false;
    bool m_ended = false;
    int m_exitCode = kExitUnknown;
};

/// Gives a document to the desktop's opener, as a double click would, and does not wait for it. 0, or why there is no
/// opener.
ErrorCode openDocument(const std::string& path);

}  // namespace KestSupport::platform
