// Child processes for tests: another program, or this test program once more, in a role of its own.
//
//   ChildProcess    starts a program, follows its output, ends it, tells how it ended
//   ChildRole       declares what this program does when it is started as a child
//
// A role is declared at namespace scope and returns the child's exit code:
//   const ChildRole role("waits", [](const std::vector<std::string>& arguments) { ...; return 0; });
//   ChildProcess child = ChildProcess::inRole("waits", {"argument"});
//
// Waits have no upper bound of their own; the test run's time limit ends a child that never does what is awaited.
// Threads: a ChildProcess belongs to one thread.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace kit {

class ChildProcess {
  public:
    struct Options {
        std::string directory;  ///< where the child starts; empty: where we are
        std::string command;    ///< shell commands to run first, such as "ulimit -f 0"
        bool terminal = false;  ///< standard error is a terminal of its own
    };

    /// Starts the program, with nothing to read on standard input. Throws std::runtime_error when that fails.
    ChildProcess(const std::string& program, const std::vector<std::string>& arguments, const Options& options);
    ChildProcess(const std::string& program, const std::vector<std::string>& arguments);
    static ChildProcess inRole(const std::string& role, const std::vector<std::string>& arguments = {});

    /// Whether this process has a child of any kind, an ended one that nobody waited for included.
    static bool anyLeft();
    /// The command line of this program in a role; arguments may be added to it.
    static std::string commandOfRole(const std::string& role);

    /// Kills a process that need not be ours, and asks one to end as a supervisor does. Nothing for 0, which the system
    /// takes for all of this program's group.
    static void kill(std::uint32_t processId);
    static void requestEnd(std::uint32_t processId);
    /// Whether this program may become another user.
    static bool isRoot();

    /// Kills a child that still runs.
    ~ChildProcess();
    ChildProcess(ChildProcess&&) noexcept;

    /// Waits until standard output holds the text at or after the place where the last such wait found its text. False
    /// when the output ends without it.
    bool waitForOutput(const std::string& text);

    /// What a user's Ctrl+C sends.
    void interrupt();
    /// What a supervisor sends to end a program.
    void requestEnd();
    void kill();
    /// What asks a service to read its settings again.
    void hangUp();

    /// Waits for the end and returns the exit code; for a child that a signal ended, the signal's number with a minus.
    int wait();

    /// What was written so far; all of it after wait.
    const std::string& output() const;
    const std::string& errors() const;

  private:
    struct State;
    std::unique_ptr<State> m_state;
};

/// What this program does as a child of the given role.
class ChildRole {
  public:
    using Main = int (*)(const std::vector<std::string>& arguments);
    ChildRole(const char* name, Main main);

    /// Runs the role that the command line names and returns true, with its exit code; false for a command line of
    /// another kind.
    static bool run(int argc, char** argv, int& exitCode);
};

}  // namespace kit
