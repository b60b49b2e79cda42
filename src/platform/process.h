// Child processes: splitting and joining command lines, starting a program, and waiting for its end.
//
// A child receives three standard handles, the environment and the working directory. It inherits no other open file.
// It starts with no signal blocked.
//
// Threads: one thread at a time may use a Process. Any thread may call the functions. No thread may change the
// environment while a process is started.
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

/// Splits a command line into the program and its arguments, by the platform's quoting rules. With a POSIX back end
/// these are the rules of the shell without its expansions:
///   - blanks, tabs and line feeds separate words;
///   - single quotes keep all characters between them;
///   - double quotes keep all characters but a backslash before ", \, $, ` or a line feed;
///   - a backslash elsewhere keeps the next character; together with a line feed it disappears.
/// A quote without an end lasts to the end of the text. A backslash at the end is a character.
std::vector<std::string> splitArguments(std::string_view commandLine);

/// Returns the argument, which contains no NUL, so that splitArguments returns it unchanged.
std::string quoteArgument(std::string_view argument);

/// Back end: returns whether the program gets the argument as it is. A batch file on Windows does not: its shell takes
/// some characters for its own language, so an argument could run a second program.
bool getsUnchanged(std::string_view program, std::string_view argument);

/// Returns a command line that splitArguments splits into these arguments.
std::string joinArguments(const std::vector<std::string>& arguments);

/// Returns the command line with quotes around the program's path if the path contains blanks and has no quotes. The
/// longest path that is a file is the program: another user may have created a file at a shorter one. Other command
/// lines, and those with a relative path, are returned unchanged.
std::string quoteProgram(const std::string& commandLine);

/// Back end: returns whether the path is absolute and leads to a file that a command line can name as its program.
bool isProgramFile(const std::string& path);

/// Values for a child's standard handle. Another value is a handle of this process, on POSIX a descriptor; on Windows 0
/// is none.
inline constexpr std::intptr_t kInheritHandle = -1;  ///< the handle of this process
inline constexpr std::intptr_t kNullDevice = -2;     ///< input is empty, output is discarded

struct ProcessRequest {
    /// If the program's name has no separator, PATH is searched; before it, Windows searches the folder of this
    /// program, the current folder and its own folders. A relative path starts at the folder of this process.
    std::string commandLine;
    std::string workingDirectory;  ///< empty: that of this process
    /// Names and values, in addition to the environment of this process. The last value of a name counts.
    std::vector<std::pair<std::string, std::string>> environment;
    /// Standard input, output and error. The caller still owns the handles.
    std::array<std::intptr_t, 3> standardHandles{kInheritHandle, kInheritHandle, kInheritHandle};
    /// The program may outlive this process; with a POSIX back end it has no terminal. The system needs no wait for its
    /// end, and its exit code is not reported.
    bool detached = false;
    /// The caller will call duplicateHandle instead of wait. Without a handle the caller could not wait for the
    /// program. So on a system that has none, the program is started as a detached one.
    bool wantsHandle = false;
    /// The program, which is not detached, and the programs that it starts are a group that endGroup ends. A program
    /// can leave the group.
    bool ownGroup = false;
    /// On a system where a program of the console would show a window of its own, it shows none.
    bool noWindow = false;
    /// A detached program starts with the file mode mask 022, the default effect of each signal, and, if this process
    /// may set it, the usual priority, instead of those of this process.
    bool usualSurroundings = false;
    /// Called with the process number of a detached program when it runs, before start returns. It runs in a helper
    /// process that survives this one, and makes system calls only.
    std::function<void(std::uint32_t)> announce = {};
};

/// The exit code if the system did not report the end to this object: another part of this process waits for any child,
/// or this process ignores the end of its children (SIGCHLD).
inline constexpr int kExitUnknown = std::numeric_limits<int>::min();

/// A program that was started. If it is not detached, the caller waits for it, or takes its handle and waits with the
/// means of the system. Otherwise the system keeps an entry for the ended program until this process ends.
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
    /// Does not end the program.
    ~Process();

    /// Starts a program. The object has none yet. Returns 0 or an error number: errorBadExecutable for a file that is
    /// no program, errorInvalidParameter for an empty command line. Blocks until the system has loaded or refused the
    /// program.
    ErrorCode start(const ProcessRequest& request);

    /// Waits for the end, at most `timeout` milliseconds (kInfinite of wait.h: without limit; 0: does not wait).
    /// Returns whether the program has ended. Requires a program.
    bool wait(std::uint32_t timeout) noexcept;

    /// Ends all programs of the group by force, without waiting for that. Requires ownGroup, and that wait has returned
    /// false last.
    void endGroup() noexcept;

    /// After wait has returned true: the exit code of the program; minus the number of the signal that ended it;
    /// kExitUnknown for a detached program.
    int exitCode() const noexcept { return m_exitCode; }

    /// Returns the process number, or 0 without a program.
    std::uint32_t id() const noexcept { return m_id; }

    /// Returns a handle of the process, with POSIX a close-on-exec process descriptor above 2. The caller closes it.
    /// Called before wait has returned true. Returns kInheritHandle if the system has none.
    std::intptr_t duplicateHandle() noexcept;

  private:
    void swap(Process& other) noexcept {
        std::swap(m_id, other.m_id);
        std::swap(m_handle, other.m_handle);
        std::swap(m_group, other.m_group);
        std::swap(m_detached, other.m_detached);
        std::swap(m_ended, other.m_ended);
        std::swap(m_exitCode, other.m_exitCode);
    }

    std::uint32_t m_id = 0;
    std::intptr_t m_handle = kInheritHandle;  // opened when it is first needed
    std::intptr_t m_group = kInheritHandle;   // of a system whose groups have a handle
    bool m_detached = false;
    bool m_ended = false;
    int m_exitCode = kExitUnknown;
};

/// Opens a document with the program of the desktop, as a double click does, and does not wait for it. Returns 0, or
/// why there is no such program.
ErrorCode openDocument(const std::string& path);

}  // namespace KestSupport::platform
