// Functions for the operating system: folders, programs, texts with references, settings of the machine, error texts,
// and names that match a pattern.
//
//   KestCreateDirectory, KestRemoveDirectory, KestRemoveDirectoryImpl    folders
//   KestFindFile                                                         the names that match a pattern
//   KestExecuteProgram, KestExecuteProgramEx                             other programs
//   KestExpandString                                                     <name> in a text becomes a value
//   KestGetEnvironmentVariable                                           a value of the machine's registry
//   KestGetOSErrorMessage                                                the text of a platform error number
//
// Paths are bytes in the encoding of the system. Both '\' and '/' separate the names in a given path. Returned texts
// show a path as it was given. Before a name that it adds, KestFindFile puts '/', and KestRemoveDirectory the separator
// of the system.
//
// Threads: any thread may call the functions while no thread changes the environment. A KestFindFile and its copies are
// for one thread at a time.
#pragma once

#include <memory>
#include <string>

#include "support/exceptions.h"
#include "support/export.h"
#include "support/properties.h"
#include "support/strings.h"

namespace KestSupport {

/// Creates a folder and its missing parents. Returns whether a file or folder of that name exists afterwards. After a
/// failure the created parents stay.
KEST_SUPPORT_EXPORT bool KestCreateDirectory(const std::string& path);

/// Removes a folder; if it is not empty, only with `recursive`, and then with its contents. Links are removed and never
/// followed. A subfolder whose name begins with '.' stays, and so do the folders that contain it.
///
/// Throws KestException "KestRemoveDirectory: Could not remove the directory " and the path, with the C runtime's errno
/// as its code, or 0 when the contents were processed before; or "KestRemoveDirectory: Could not remove the file " and
/// the path, with the code 0. Files that were removed before the failure stay removed. A folder that is not empty and
/// cannot be read stays. For `path` itself this is logged at level 1 and not a failure; for a subfolder the removal of
/// its parent fails. Windows refuses to remove a read-only file, and a file that a program has open.
KEST_SUPPORT_EXPORT void KestRemoveDirectory(const std::string& path, bool recursive);

/// The same with a result: returns false and sets text and code where KestRemoveDirectory throws for `path` itself or a
/// file directly in it. For a failure in a subfolder it throws too. Does not change the code where it would be 0.
KEST_SUPPORT_EXPORT bool KestRemoveDirectoryImpl(const std::string& path, bool recursive, std::string& errorText,
                                                 int& errorCode);

/// Runs a program with the standard handles, the environment and the working directory of this process. The program
/// gets no other open file of this process. The command line is split by the platform's quoting rules (on Linux those
/// of the shell) and is not expanded. A program name without a separator is searched along PATH.
///
/// With `wait`, blocks until the program has ended and stores its exit code at `exitCode`. For a program that a signal
/// ended, this is minus the signal's number; it is std::numeric_limits<int>::min() when the system does not report it,
/// because this process ignores SIGCHLD or another part of it waits for any child. Without `wait` the exit code is 0.
/// On Windows a program of the console shows no window, unless the log level is above 5.
///
/// Stores the handle of the process at `process`; the caller closes it. It is null when the system gives none, and then
/// the caller need not wait for the program. On Linux it is the number of a process descriptor, for poll, waitid and
/// close; a caller that did not wait here waits for the process with it. Without `wait` and `process` the caller has no
/// duties.
///
/// The desktop opens a file that is not a program; this counts as success, with the exit code 0. Returns false, with
/// the exit code -1, when the program cannot be started. Either pointer may be null.
KEST_SUPPORT_EXPORT bool KestExecuteProgram(const std::string& commandLine, bool wait, void** process, int* exitCode);

/// The same, with handles for the program's standard input and output: on Linux the number of a descriptor, as a
/// pointer. All ones means the standard handle of this process. The caller still owns the handles. Read the program's
/// pipe while you wait, or both block once it is full. On Windows null means that the program has no such handle.
KEST_SUPPORT_EXPORT bool KestExecuteProgramEx(const std::string& commandLine, void* standardInput, void* standardOutput,
                                              bool wait, void** process, int* exitCode);

/// Returns the text, of any size, with each <name> replaced, from the left, by the environment variable of that name,
/// or by nothing without one. References inside a value are replaced too. A '<' without a '>' ends the expansion.
///
/// Two kinds of references are not replaced, and the expansion continues after them. The first refers to itself: its
/// '>' is in the value of a reference of the same name, directly or through other values. The second exceeds the limit:
/// all values of references inside values have at most 1 MiB plus 100 times the size of the text. The time is linear in
/// the size of the text and the values.
KEST_SUPPORT_EXPORT std::string KestExpandString(const std::string& text);
/// The same; the first value of a property takes precedence over an environment variable. Below log level 9, other
/// threads that use the properties wait until the expansion ends.
KEST_SUPPORT_EXPORT std::string KestExpandString(const std::string& text, KestProperties<std::string>& properties);

/// Returns a value of the machine's registry. On a system without one, a file replaces it (docs/formats/registry.md).
/// The key is a path below HKEY_LOCAL_MACHINE and the name of the value, separated by '\'; a key without '\' is both. A
/// text is returned up to a NUL, a number in signed decimal. Returns an empty text when the value does not exist.
/// Returns it too, with a record at level 1, when the registry cannot be read or another user may write its file.
///
/// Throws KestKeyDataNotSupportedException for a value of another type, with the detail
/// "KestUtilities::KestGetEnvironmentVariable:                         key-value data type not supported".
KEST_SUPPORT_EXPORT std::string KestGetEnvironmentVariable(const std::string& key);

/// Sets `message` to the platform's text for an error number, without blanks and line ends around it; for a number
/// without a text, to "Unrecognized error code: 123456 (0x0001e240)". On every platform these are the library's error
/// numbers (5: access denied), not errno.
KEST_SUPPORT_EXPORT void KestGetOSErrorMessage(int errorCode, std::string& message);
KEST_SUPPORT_EXPORT void KestGetOSErrorMessage(int errorCode, wstring16& message);

class FindFileBase;

/// The names in one folder that match a pattern: a path whose last name may have '*' (any characters) and '?' (one
/// character). They are in the system's order and include "." and ".." when these match. Copies share one search: each
/// name is returned by one of them only.
class KEST_SUPPORT_EXPORT KestFindFile {
  public:
    /// Starts the search. A folder that cannot be read has no names; an existing one is logged at level 1.
    explicit KestFindFile(const std::string& pattern);
    KestFindFile(const KestFindFile& other) noexcept;
    KestFindFile& operator=(const KestFindFile& other) noexcept;
    ~KestFindFile();

    /// Returns whether next has another name.
    bool hasMore() const noexcept;
    /// Returns the next name, with the pattern's path and '/' before it if the pattern has a path; empty at the end.
    std::string next();

  private:
    std::shared_ptr<FindFileBase> m_search;
};

}  // namespace KestSupport
