// Runs a program with a list of arguments, waits for its end, and returns what it has written. KestJoinArguments makes
// a command line of such a list.
//
//     const KestProgramResult result = KestRunProgram({.arguments = {"tar", "-tf", file}, .timeout = 60'000});
//     if (result.exitCode == 0) use(result.output);
//
// No shell is involved, but for batch files on Windows, so no argument needs quotes. KestExecuteProgram (utilities.h)
// takes a command line instead.
//
// Threads: any thread may call KestJoinArguments, and KestRunProgram while no thread changes the environment.
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "support/exceptions.h"
#include "support/export.h"

namespace KestSupport {

/// What KestRunProgram runs, and its limits.
struct KestProgramRun {
    /// The program first. Without a separator in its name, PATH is searched, on Windows after other folders.
    std::vector<std::string> arguments;
    std::string workingDirectory = {};  ///< empty: that of this process
    /// Names and values, in addition to the environment of this process. The last value of a name counts.
    std::vector<std::pair<std::string, std::string>> environment = {};
    /// Milliseconds; negative: waits without limit.
    int timeout = -1;
    /// The most bytes of output, and of errors; 0: any number.
    std::size_t outputLimit = 0;
};

/// How a program ended, and what it has written.
struct KestProgramResult {
    int exitCode = 0;             ///< as KestExecuteProgram stores it
    bool timedOut = false;        ///< the program was ended by force after the time-out
    bool exceededOutput = false;  ///< more bytes than the limit were written
    std::string output;           ///< what the program and those that it started wrote to standard output until its end
    std::string errors;           ///< the same for standard error
};

/// Runs the program to its end, with an empty standard input and no other open file of this process. With a time-out
/// or a limit, the program has a process group of its own, on Windows a job. When the time has passed or more bytes
/// than the limit are written, the whole group is ended by force; a program that has left the group continues. A
/// program that still runs after the first one does not delay the return.
///
/// The program has no signal blocked; a signal that this process ignores is ignored by the program, too. With a group
/// of its own it does not get a Ctrl+C of the terminal. The output is collected in memory, on Windows in a temporary
/// file. The limit is checked a hundred times per second, so more than the limit may be collected before; the texts are
/// cut there. As with any file, a program that opens its output again with truncation ("> /dev/stdout" in a shell)
/// removes what was written before.
///
/// Windows runs a batch file (.bat, .cmd) by its shell. A path or an argument with one of "%!&|<>^ or a line end, which
/// could run another program there, is refused. The shell's other rules apply: '=' separates two parameters.
///
/// Throws KestException "KestRunProgram: Could not start " and the program, with the platform's error number as the
/// code: 2 if there is no such program, 87 for an empty list, a NUL in a text, an argument that a batch file cannot
/// get, or a variable without a name or with '=' in it, 193 for a file that is no program. Throws std::bad_alloc.
KEST_SUPPORT_EXPORT KestProgramResult KestRunProgram(const KestProgramRun& run);

/// Returns a command line that the system splits into exactly these arguments, quoted where this is necessary. It is
/// for KestExecuteProgram (utilities.h) and for the arguments of an installed service (service.h). An argument contains
/// no NUL. Throws std::bad_alloc.
KEST_SUPPORT_EXPORT std::string KestJoinArguments(const std::vector<std::string>& arguments);

}  // namespace KestSupport
