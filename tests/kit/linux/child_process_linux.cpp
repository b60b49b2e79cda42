#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <optional>
#include <stdexcept>

#include "kit/child_process.h"

namespace kit {
namespace {

// A pipe or a terminal from the child to this process. Both descriptors are closed on exec.
struct Stream {
    int readEnd = -1;
    int writeEnd = -1;
    std::string text;  // read until now

    ~Stream() {
        closeEnd(readEnd);
        closeEnd(writeEnd);
    }
    void open(bool asTerminal) {
        int ends[2] = {-1, -1};
        if (!asTerminal) {
            if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
        } else {
            ends[0] = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
            char name[64];
            if (unlockpt(ends[0]) == 0 && ptsname_r(ends[0], name, sizeof name) == 0) {
                ends[1] = ::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
            }
            if (ends[1] < 0) throw std::runtime_error("no terminal");
        }
        readEnd = ends[0];
        writeEnd = ends[1];
    }
    void readSome() {
        char buffer[4096];
        const ssize_t count = read(readEnd, buffer, sizeof buffer);
        if (count > 0) {
            text.append(buffer, static_cast<std::size_t>(count));
        } else {
            closeEnd(readEnd);
        }
    }
    static void closeEnd(int& end) {
        if (end >= 0) close(end);
        end = -1;
    }
};

}  // namespace

struct ChildProcess::State {
    pid_t process = -1;
    std::optional<int> result;
    Stream output;
    Stream errors;
    std::size_t searchFrom = 0;

    ~State() {
        if (process <= 0 || result) return;
        send(SIGKILL);
        waitpid(process, nullptr, 0);
    }

    void send(int signal) const { ::kill(process, signal); }

    // Waits for output and reads it. Returns false when both streams have ended.
    bool readMore() {
        pollfd polled[] = {{output.readEnd, POLLIN, 0}, {errors.readEnd, POLLIN, 0}};
        if (output.readEnd < 0 && errors.readEnd < 0) return false;
        if (poll(polled, 2, -1) < 0) return errno == EINTR;
        if (polled[0].revents != 0) output.readSome();
        if (polled[1].revents != 0) errors.readSome();
        return true;
    }
};

ChildProcess::ChildProcess(const std::string& program, const std::vector<std::string>& arguments,
                           const Options& options)
    : m_state(std::make_unique<State>()) {
    std::vector<std::string> words;
    if (!options.command.empty()) words = {"/bin/sh", "-c", options.command + "; exec \"$@\"", "sh"};
    words.push_back(program);
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    m_state->output.open(false);
    m_state->errors.open(options.terminal);
    const int input = open(options.input.empty() ? "/dev/null" : options.input.c_str(), O_RDONLY | O_CLOEXEC);
    m_state->process = fork();
    if (m_state->process == 0) {
        if (!options.directory.empty() && chdir(options.directory.c_str()) != 0) _exit(126);
        for (const int number : {SIGINT, SIGTERM, SIGPIPE})
            signal(number, SIG_DFL);  // a background job ignores some
        dup2(input, 0);
        dup2(m_state->output.writeEnd, 1);
        dup2(m_state->errors.writeEnd, 2);
        execv(argv[0], argv.data());
        _exit(127);
    }
    close(input);
    if (m_state->process < 0) throw std::runtime_error("no process for " + program);
    Stream::closeEnd(m_state->output.writeEnd);
    Stream::closeEnd(m_state->errors.writeEnd);
}

bool ChildProcess::anyLeft() {
    siginfo_t info{};
    return waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0 || errno != ECHILD;
}

void ChildProcess::kill(std::uint32_t processId) {
    if (processId != 0) ::kill(static_cast<pid_t>(processId), SIGKILL);
}
void ChildProcess::requestEnd(std::uint32_t processId) {
    if (processId != 0) ::kill(static_cast<pid_t>(processId), SIGTERM);
}
bool ChildProcess::isRoot() {
    return ::geteuid() == 0;
}

ChildProcess::~ChildProcess() = default;
ChildProcess::ChildProcess(ChildProcess&&) noexcept = default;

bool ChildProcess::waitForOutput(const std::string& text) {
    for (;;) {
        const std::size_t found = output().find(text, m_state->searchFrom);
        if (found != std::string::npos) {
            m_state->searchFrom = found + text.size();
            return true;
        }
        if (!m_state->readMore()) return false;
    }
}

void ChildProcess::interrupt() {
    m_state->send(SIGINT);
}
void ChildProcess::requestEnd() {
    m_state->send(SIGTERM);
}
void ChildProcess::kill() {
    m_state->send(SIGKILL);
}
void ChildProcess::hangUp() {
    m_state->send(SIGHUP);
}

int ChildProcess::wait() {
    while (m_state->readMore()) {
    }
    int status = 0;
    while (!m_state->result) {
        if (waitpid(m_state->process, &status, 0) < 0 && errno == EINTR) continue;
        m_state->result = WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
    }
    return *m_state->result;
}

const std::string& ChildProcess::output() const {
    return m_state->output.text;
}
const std::string& ChildProcess::errors() const {
    return m_state->errors.text;
}

}  // namespace kit
