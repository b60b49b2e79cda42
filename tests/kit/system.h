// What tests ask of the system, or set in it, where systems differ. kit/SYSTEM has the functions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <locale>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kit {

/// Sets what this program inherits and its tests rely on: open standard streams; on POSIX the signals that their
/// children end by, the permissions of new files, folders of programs that every user may search, the language,
/// and no settings of services.
void takeUsualSurroundings();

/// Returns the system's own text for an error: for the errno value on POSIX, for the code on Windows.
std::string systemText(std::uint32_t code, int errnoValue);

/// A library that each system has.
extern const char* const kSystemLibrary;
/// Returns the system's reason why the library, which is no library or does not exist, cannot be loaded.
std::string loadFailure(const std::string& path);

/// A locale of the C runtime, for setlocale, that knows the letters of all languages.
extern const char* const kLocaleWithLetters;
/// Returns a locale with a name of its own, or the classic one if the C++ runtime has no other.
std::locale namedLocale();

/// Asks this program to read its settings again, as a supervisor does. Returns false on a system without such a
/// request.
bool hangUpThisProgram();
/// The letter U+00FC in the code page of this program.
extern const char* const kUmlaut;
/// Why no file can have a name of 300 characters.
extern const char* const kLongNameFails;
/// Whether the system has a load average.
extern const bool kHasLoadAverage;
/// Sends this program what Ctrl+C sends. On Windows it needs a console.
void interruptThisProgram();
/// Whether the exit code is that of a program that Ctrl+C has ended.
bool isEndByInterrupt(int exitCode);
/// The steps of the system that the first handler of console events takes.
extern const int kConsoleSteps;
/// Ends the calling thread by the system's own function. Null if that does not unwind the stack.
extern int (*const kThreadExit)();
/// Whether the system shows the name, or the part of it that it takes, for the calling thread. True if it has no names.
bool threadIsCalled(const std::string& name);
/// Whether a test has a service manager of its own, so that all services are the test's.
bool servicesAreOfTheTest();
/// Waits until no other program that has called this uses the same service manager. The turn ends with this program.
void ownFixedServiceNames();
/// Returns a stream's handle, and the ends of a pipe, read end first, which a careless start of a child would pass on.
std::intptr_t handleOf(std::FILE* stream);
std::pair<std::intptr_t, std::intptr_t> inheritablePipe();
/// How KestServiceControl fails to stop a service that is starting, which accepts no stop.
extern const char* const kStopOfStartingServiceFails;
/// The words that have the system's shell run a command.
std::vector<std::string> shellCommand(const std::string& command);
/// The number of threads of this program, and of its open handles.
std::ptrdiff_t threadCount();
std::ptrdiff_t handleCount();
/// Closes a handle that the library or inheritablePipe has returned.
void closeHandle(void* handle);

/// Takes and releases the runtime's lock of the standard error stream.
void lockErrorStream();
void unlockErrorStream();
/// Returns false if another thread has the lock.
bool errorStreamIsFree();

/// Blocks all signals for the calling thread and the threads that it creates, on a system with signals.
class AllSignalsBlocked {
  public:
    AllSignalsBlocked();
    ~AllSignalsBlocked();

  private:
    std::shared_ptr<void> m_before;
};

}  // namespace kit
