#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "kit/child_process.h"
#include "platform/process.h"

namespace kit {
namespace {

struct Pipe {
    int readEnd = -1;
    int writeEnd = -1;
    Pipe() {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
        readEnd = ends[0];
        writeEnd = ends[1];
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    ~Pipe() { closeEnds(); }

    // The write end is a terminal; the read end is its other side.
    void becomeTerminal() {
        closeEnds();
        readEnd = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        char name[64];
        if (readEnd < 0 || unlockpt(readEnd) != 0 || ptsname_r(readEnd, name, sizeof name) != 0 ||
            (writeEnd = open(name, O_RDWR | O_NOCTTY | O_CLOEXEC)) < 0) {
            throw std::runtime_error("no terminal");
        }
    }
    void closeEnds() {
        for (int* const end : {&readEnd, &writeEnd}) {
            if (*end >= 0) close(*end);
            *end = -1;
        }
    }
};

std::vector<std::string> commandLine(const std::string& program, const std::vector<std::string>& arguments,
                                     const std::string& shellCommand) {
    std::vector<std::string> words;
    if (!shellCommand.empty()) words = {"/bin/sh", "-c", shellCommand + "; exec \"$@\"", "sh"};
    words.push_back(program);
    words.insert(words.end(), arguments.begin(), arguments.end());
    return words;
}

}  // namespace

struct ChildProcess::State {
    pid_t process = -1;
    bool ended = false;
    int result = 0;
    std::array<Pipe, 2> pipes;  // standard output, standard error
    std::array<std::string, 2> collected;
    std::size_t searchFrom = 0;

    ~State() {
        if (process <= 0 || ended) return;
        ::kill(process, SIGKILL);
        waitpid(process, nullptr, 0);
    }

    void send(int signal) const { ::kill(process, signal); }

    // Waits for output and reads it. Returns false when both streams have ended.
    bool readMore() {
        std::array<pollfd, 2> polled{};
        for (std::size_t i = 0; i < 2; ++i)
            polled[i] = {pipes[i].readEnd, POLLIN, 0};
        if (polled[0].fd < 0 && polled[1].fd < 0) return false;
        if (poll(polled.data(), polled.size(), -1) < 0) return errno == EINTR;
        for (std::size_t i = 0; i < 2; ++i) {
            if (polled[i].revents == 0) continue;
            char buffer[4096];
            const ssize_t count = read(pipes[i].readEnd, buffer, sizeof buffer);
            if (count > 0) {
                collected[i].append(buffer, static_cast<std::size_t>(count));
            } else {
                close(pipes[i].readEnd);
                pipes[i].readEnd = -1;
            }
        }
        return true;
    }
};

ChildProcess::ChildProcess(const std::string& program, const std::vector<std::string>& arguments,
                           const Options& options)
    : m_state(std::make_unique<State>()) {
    std::vector<std::string> words = commandLine(program, arguments, options.command);
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    if (options.terminal) m_state->pipes[1].becomeTerminal();
    const int nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
    m_state->process = fork();
    if (m_state->process == 0) {
        if (!options.directory.empty() && chdir(options.directory.c_str()) != 0) _exit(126);
        for (const int number : {SIGINT, SIGTERM, SIGPIPE})
            signal(number, SIG_DFL);  // a background job ignores some
        dup2(nothing, 0);
        dup2(m_state->pipes[0].writeEnd, 1);
        dup2(m_state->pipes[1].writeEnd, 2);
        execv(argv[0], argv.data());
        _exit(127);
    }
    close(nothing);
    if (m_state->process < 0) throw std::runtime_error("no process for " + program);
    for (Pipe& each : m_state->pipes) {
        close(each.writeEnd);
        each.writeEnd = -1;
    }
}

ChildProcess::ChildProcess(const std::string& program, const std::vector<std::string>& arguments)
    : ChildProcess(program, arguments, Options{}) {}

ChildProcess ChildProcess::inRole(const std::string& role, const std::vector<std::string>& arguments) {
    std::vector<std::string> all{"--child-role=" + role};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return ChildProcess(std::filesystem::read_symlink("/proc/self/exe").string(), all);
}

bool ChildProcess::anyLeft() {
    siginfo_t info{};
    return waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0 || errno != ECHILD;
}

std::string ChildProcess::commandOfRole(const std::string& role) {
    const std::string program = std::filesystem::read_symlink("/proc/self/exe").string();
    return KestSupport::platform::quoteArgument(program) + " --child-role=" + role;
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
        const std::size_t found = m_state->collected[0].find(text, m_state->searchFrom);
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
    if (m_state->ended) return m_state->result;
    int status = 0;
    while (waitpid(m_state->process, &status, 0) < 0 && errno == EINTR) {
    }
    m_state->ended = true;
    m_state->result = WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
    return m_state->result;
}

const std::string& ChildProcess::output() const {
    return m_state->collected[0];
}
const std::string& ChildProcess::errors() const {
    return m_state->collected[1];
}

}  // namespace kit
