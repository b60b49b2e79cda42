// Child processes for tests: another program, or this test program in a role.
//
//   ChildProcess    starts a program, reads its output, ends it, reports how it ended
//   ChildRole       declares what this program does when it is started as a child
//
// A role is declared at namespace scope and returns the child's exit code:
//   const ChildRole role("waits", [](const std::vector<std::string>& arguments) { ...; return 0; });
//   ChildProcess child = ChildProcess::inRole("waits", {"argument"});
//
// Waits have no time-out. The time limit of the test run ends a child that hangs.
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
        std::string directory = {};  ///< the child's working directory; empty: ours
        std::string command = {};    ///< shell commands to run first, such as "ulimit -f 0"
        bool terminal = false;       ///< standard error is a new terminal; on Windows the child has a console
        std::string input = {};      ///< a file for standard input, which is empty without one
    };

    /// Starts the program. Throws std::runtime_error when that fails.
    ChildProcess(const std::string& program, const std::vector<std::string>& arguments, const Options& options);
    ChildProcess(const std::string& program, const std::vector<std::string>& arguments);
    static ChildProcess inRole(const std::string& role, const std::vector<std::string>& arguments = {});
    static ChildProcess inRole(const std::string& role, const std::vector<std::string>& arguments,
                               const Options& options);

    /// Whether this process has a child, an ended one that was not waited for included.
    static bool anyLeft();
    /// The command line of this program in a role, and its part after the program. The role begins in the folder if one
    /// is given. Arguments may be appended.
    static std::string commandOfRole(const std::string& role, const std::string& folder = "");
    static std::string argumentsOfRole(const std::string& role, const std::string& folder);

    /// Kills any process, or asks it to end as a supervisor does. Ignores 0, which would mean this program's group.
    static void kill(std::uint32_t processId);
    static void requestEnd(std::uint32_t processId);
    /// Whether this program runs as root.
    static bool isRoot();

    /// Kills the child if it still runs.
    ~ChildProcess();
    ChildProcess(ChildProcess&&) noexcept;

    /// Waits until standard output has the text after the text that the last such wait found. Returns false when the
    /// output ends without it.
    bool waitForOutput(const std::string& text);

    void interrupt();   ///< as a user's Ctrl+C
    void requestEnd();  ///< as a supervisor that ends a program
    void kill();
    void hangUp();  ///< asks a service to read its settings again

    /// Waits for the end and returns the exit code, or minus the number of the signal that ended the child.
    int wait();

    /// The text that was read until now; complete after wait.
    const std::string& output() const;
    const std::string& errors() const;

  private:
    struct State;
    std::unique_ptr<State> m_state;
};

/// A function that this program runs when it is started in the named role.
class ChildRole {
  public:
    using Main = int (*)(const std::vector<std::string>& arguments);
    ChildRole(const char* name, Main main);

    /// If the command line names a role, runs it, sets its exit code and returns true.
    static bool run(int argc, char** argv, int& exitCode);
};

}  // namespace kit
