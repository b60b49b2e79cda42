// Small chores around the operating system: folders, programs, texts with references, settings of the machine, error
// texts, and names that match a pattern.
//
//   KestCreateDirectory, KestRemoveDirectory, KestRemoveDirectoryImpl    folders
//   KestFindFile                                                         the names that match a pattern
//   KestExecuteProgram, KestExecuteProgramEx                             other programs
//   KestExpandString                                                     <name> in a text becomes a value
//   KestGetEnvironmentVariable                                           a value of the machine's registry
//   KestGetOSErrorMessage                                                the text of a platform error number
//
// Paths are in the system's own bytes. Both '\' and '/' separate the names in a path that is given here; the texts
// that come back show a path as it was given, with '/' in front of what was added.
//
// Threads: the functions may be called by any thread, while no thread changes the environment; a KestFindFile, and its
// copies, are for one thread at a time.
#pragma once

#include <memory>
#include <string>

#include "support/exceptions.h"
#include "support/export.h"
#include "support/properties.h"
#include "support/strings.h"

namespace KestSupport {

/// Makes a folder, and its parents where they are missing. Whether there is something of that name afterwards. When it
/// fails, the parents that could be made stay.
KEST_SUPPORT_EXPORT bool KestCreateDirectory(const std::string& path);

/// Removes a folder; when it is not empty, only if `recursive`, together with all that is in it. Links are removed and
/// never followed. A folder within it whose name begins with '.' is left where it is, and so what it is in.
///
/// Throws KestException: "KestRemoveDirectory: Could not remove the directory " and the path, with the C runtime's
/// errno as its code, or with 0 when the contents had been gone through by then; "KestRemoveDirectory: Could not remove
/// the file " and the path, with 0. What was removed before stays removed. A folder that is not empty and cannot be
/// read stays as it is: the path itself with a record at level 1, one below it for its parent's removal to report.
KEST_SUPPORT_EXPORT void KestRemoveDirectory(const std::string& path, bool recursive);

/// The same for callers that want a result: false, and the text and code, where KestRemoveDirectory throws on behalf of
/// the path itself and the files in it. Where it is a folder below, this throws too. The code is left as it was
/// wherever it would be 0.
KEST_SUPPORT_EXPORT bool KestRemoveDirectoryImpl(const std::string& path, bool recursive, std::string& errorText,
                                                 int& errorCode);

/// Runs a program with the standard handles, the environment and the working directory of this one, and nothing else
/// that this one has open. The command line is split by the platform's quoting rules, those of the shell on Linux, and
/// expanded by nobody. The program is looked for along PATH when its name has no separator.
///
/// With `wait`, blocks until the program has ended, and stores its exit code where `exitCode` points; for a program
/// that a signal ended, minus the signal's number; std::numeric_limits<int>::min() when the system does not report it,
/// since this process ignores SIGCHLD or another part of it waits for any child. Without, the exit code is 0.
///
/// Where `process` points, the handle of the process is stored, for the caller to close; null when the system gives
/// none: then no caller has to wait for the program. On
/// Linux it is the number of a process descriptor, for poll, waitid and close, and a caller who did not wait here waits
/// for the process with it. A program that is neither waited for nor asked for a handle needs no care at all.
///
/// A file that is no program is opened by the desktop; that counts as success, with the exit code 0. False when the
/// program cannot be started, with the exit code -1. Either pointer may be null.
KEST_SUPPORT_EXPORT bool KestExecuteProgram(const std::string& commandLine, bool wait, void** process, int* exitCode);

/// The same, with other handles as the program's standard input and output: on Linux the number of a descriptor, as a
/// pointer. All ones is this program's own. The handles stay the caller's. Who waits for a program while nobody reads
/// what it writes into a pipe waits for good once the pipe is full.
KEST_SUPPORT_EXPORT bool KestExecuteProgramEx(const std::string& commandLine, void* standardInput, void* standardOutput,
                                              bool wait, void** process, int* exitCode);

/// The text, of any size, with each <name> replaced, from the left, by the environment variable of that name; by
/// nothing when there is none. References that a value brings in are replaced too. A '<' without a '>' ends the work.
///
/// Two kinds of references stay as they are, and expansion continues after them. The first refers to itself: its '>'
/// came out of the value of a reference of the same name, directly or through other values. The second is in a value
/// and has no room: all values that references inside values bring in have at most 1 MiB plus 100 times the size of
/// the text. Takes time in proportion to the text and the values.
KEST_SUPPORT_EXPORT std::string KestExpandString(const std::string& text);
/// The same; the first value of a property goes before an environment variable.
KEST_SUPPORT_EXPORT std::string KestExpandString(const std::string& text, KestProperties<std::string>& properties);

/// A value of the machine's registry (its file, where the system has none, is described in docs/formats/registry.md).
/// The key is a path below HKEY_LOCAL_MACHINE and the name of the value, with '\' between all of them; without any '\'
/// it is both. A text is given as it is, up to a NUL; a number as a signed decimal one. Empty when there is no such
/// value, and, with a record at level 1, when the registry cannot be read or its file is one that another user may
/// write.
///
/// Throws KestKeyDataNotSupportedException for a value of another kind, with the detail
/// "KestUtilities::KestGetEnvironmentVariable:                         key-value data type not supported".
KEST_SUPPORT_EXPORT std::string KestGetEnvironmentVariable(const std::string& key);

/// Sets `message` to the platform's text for one of its error numbers, without blanks and line ends around it; for a
/// number without a text to "Unrecognized error code: 123456 (0x0001e240)". On Linux too the numbers are those that the
/// library counts errors by (5: access denied), not errno.
KEST_SUPPORT_EXPORT void KestGetOSErrorMessage(int errorCode, std::string& message);
KEST_SUPPORT_EXPORT void KestGetOSErrorMessage(int errorCode, wstring16& message);

class FindFileBase;

/// The names in one folder that match a pattern: a path whose last name may have '*' (any characters) and '?' (one
/// character). They come in the system's order; "." and ".." are among them when they match. Copies share one search:
/// what one has taken, the others do not get.
class KEST_SUPPORT_EXPORT KestFindFile {
  public:
    /// Starts the search. A folder that cannot be read has no names; unless it does not exist, a record at level 1 says
    /// so.
    explicit KestFindFile(const std::string& pattern);
    KestFindFile(const KestFindFile& other) noexcept;
    KestFindFile& operator=(const KestFindFile& other) noexcept;
    ~KestFindFile();

    /// Whether next has a name to give.
    bool hasMore() const noexcept;
    /// The next name, behind the pattern's path and a '/' if it has a path; empty when there is none.
    std::string next();

  private:
    std::shared_ptr<FindFileBase> m_search;
};

}  // namespace KestSupport
