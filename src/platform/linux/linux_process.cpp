// Child processes by posix_spawn. A detached program is started by a short-lived helper process, so that it is not a
// child of this process.
#include "platform/process.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>

#include "platform/deadline.h"
#include "platform/linux/linux_call.h"
#include "platform/linux/linux_descriptor.h"

namespace KestSupport::platform {
namespace {

constexpr int kFirstOtherDescriptor = 3;
// Milliseconds between two looks at a process whose end the system does not announce.
constexpr std::uint32_t kLookAgainAfter = 10;

// The arguments of posix_spawn.
class SpawnPlan {
  public:
    SpawnPlan() noexcept {
        posix_spawn_file_actions_init(&m_actions);
        posix_spawnattr_init(&m_attributes);
    }
    SpawnPlan(const SpawnPlan&) = delete;
    SpawnPlan& operator=(const SpawnPlan&) = delete;
    ~SpawnPlan() {
        posix_spawn_file_actions_destroy(&m_actions);
        posix_spawnattr_destroy(&m_attributes);
    }

    /// Returns 0 or an errno value. The words and the environment are read until the program has started.
    int prepare(const ProcessRequest& request, std::vector<std::string>& words) {
        int error = takeStandardHandles(request);
        if (error == 0) error = takeWorkingDirectory(request.workingDirectory, words.front());
        if (error == 0) error = posix_spawn_file_actions_addclosefrom_np(&m_actions, kFirstOtherDescriptor);
        if (error != 0) return error;
        sigset_t signals;
        sigemptyset(&signals);
        posix_spawnattr_setsigmask(&m_attributes, &signals);
        sigfillset(&signals);
        posix_spawnattr_setsigdefault(&m_attributes, &signals);
        const int session = request.detached ? POSIX_SPAWN_SETSID : 0;
        const int group = request.ownGroup ? POSIX_SPAWN_SETPGROUP : 0;  // with the number of the program
        const int effects = request.usualSurroundings ? POSIX_SPAWN_SETSIGDEF : 0;
        posix_spawnattr_setflags(&m_attributes, static_cast<short>(POSIX_SPAWN_SETSIGMASK | session | group | effects));
        for (std::string& word : words)
            m_words.push_back(word.data());
        m_words.push_back(nullptr);
        fillEnvironment(request);
        return 0;
    }

    /// Returns 0 with the child's number, or an errno value. Allocates nothing, so a forked process may call it.
    int run(pid_t& child) noexcept {
        return ::posix_spawnp(&child, m_words.front(), &m_actions, &m_attributes, m_words.data(), m_environment.data());
    }

  private:
    int takeStandardHandles(const ProcessRequest& request) {
        for (int target = 0; target < kFirstOtherDescriptor; ++target) {
            const std::intptr_t handle = request.standardHandles[static_cast<std::size_t>(target)];
            int error = 0;
            if (handle == kNullDevice) {
                error = posix_spawn_file_actions_addopen(&m_actions, target, "/dev/null", O_RDWR, 0);
            } else if (handle != kInheritHandle) {
                // A copy above the targets, since one target may be the source of another.
                Descriptor& copy = m_sources[static_cast<std::size_t>(target)];
                copy = Descriptor(systemCall("passHandle", [&] {
                    return ::fcntl(static_cast<int>(handle), F_DUPFD_CLOEXEC, kFirstOtherDescriptor);
                }));
                if (copy.get() < 0) return errno;
                error = posix_spawn_file_actions_adddup2(&m_actions, copy.get(), target);
            }
            if (error != 0) return error;
        }
        return 0;
    }

    // Makes a relative path absolute, since the child changes its folder before it searches for the program.
    int takeWorkingDirectory(const std::string& directory, std::string& program) {
        if (directory.empty()) return 0;
        if (!program.starts_with('/') && program.find('/') != std::string::npos) {
            std::array<char, 4096> folder;
            const auto find = [&] { return ::getcwd(folder.data(), folder.size()) == nullptr ? -1 : 0; };
            if (systemCall("currentDirectory", find) != 0) return errno;
            program = std::string(folder.data()) + '/' + program;
        }
        return posix_spawn_file_actions_addchdir_np(&m_actions, directory.c_str());
    }

    void fillEnvironment(const ProcessRequest& request) {
        for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry)
            m_environment.push_back(*entry);
        m_additions.reserve(request.environment.size());  // so that the texts keep their places
        for (const auto& [name, value] : request.environment) {
            std::erase_if(m_environment, [&name = name](std::string_view present) {
                return present.starts_with(name) && present.substr(name.size()).starts_with('=');
            });
            m_environment.push_back(m_additions.emplace_back(name).append(1, '=').append(value).data());
        }
        m_environment.push_back(nullptr);
    }

    posix_spawn_file_actions_t m_actions;
    posix_spawnattr_t m_attributes;
    std::array<Descriptor, kFirstOtherDescriptor> m_sources;
    std::vector<char*> m_words;
    std::vector<std::string> m_additions;
    std::vector<char*> m_environment;
};

int openProcess(std::uint32_t id) noexcept {
    return static_cast<int>(systemCall("openProcess", [&] { return ::syscall(SYS_pidfd_open, id, 0); }));
}

// Children that no caller can wait for, since the system refused a handle after the start. The next start waits for
// them. If the table is full, the system waits for the child after the end of this process.
constinit std::array<std::atomic<pid_t>, 64> g_abandoned{};

void abandon(pid_t child) noexcept {
    for (std::atomic<pid_t>& place : g_abandoned) {
        pid_t empty = 0;
        if (place.compare_exchange_strong(empty, child)) return;
    }
}

void reapAbandoned() noexcept {
    for (std::atomic<pid_t>& place : g_abandoned) {
        pid_t child = place.load(std::memory_order_relaxed);
        // After waitpid the number may belong to another child, so only one thread may wait for it.
        if (child == 0 || !place.compare_exchange_strong(child, -1)) continue;
        place = ::waitpid(child, nullptr, WNOHANG) == 0 ? child : 0;
    }
}

struct Report {
    int error = 0;
    pid_t child = 0;
};

// Sets what the program inherits. The system may keep a priority that is lower than usual.
void takeUsualSurroundings() noexcept {
    ::umask(S_IWGRP | S_IWOTH);
    const sched_param usual{};
    ::sched_setscheduler(0, SCHED_OTHER, &usual);
    ::setpriority(PRIO_PROCESS, 0, 0);
}

// The helper process. It ends only after the parent has read the report, so that the number of its child is not used
// again before. It has copies of all descriptors of its parent and closes them before it waits. Otherwise a port would
// stay in use. The end of the parent would not be noticed either, because this process, or the helper process of
// another thread, would hold the other end of the socket.
[[noreturn]] void runHelper(SpawnPlan& plan, const ProcessRequest& request, int socket) noexcept {
    if (request.usualSurroundings) takeUsualSurroundings();
    Report report;
    report.error = plan.run(report.child);
    if (report.error == 0 && request.announce) request.announce(static_cast<std::uint32_t>(report.child));
    ::dup2(socket, STDIN_FILENO);
    ::closefrom(STDIN_FILENO + 1);
    char answer = 0;
    if (::send(STDIN_FILENO, &report, sizeof report, MSG_NOSIGNAL) == sizeof report) {
        uninterrupted([&] { return ::recv(STDIN_FILENO, &answer, sizeof answer, 0); });
    } else if (report.error == 0) {
        // No process knows the program, so it must not continue.
        ::kill(-report.child, SIGKILL);
    }
    ::_exit(0);
}

// Starts the helper process. All signals are blocked in it: a Ctrl+C reaches each process of the terminal.
pid_t forkHelper(SpawnPlan& plan, const ProcessRequest& request, int socket) noexcept {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before);
    const pid_t helper = systemCall("startDetached", [] { return ::fork(); });
    if (helper == 0) runHelper(plan, request, socket);
    const int error = errno;
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    errno = error;
    return helper;
}

int runDetached(SpawnPlan& plan, const ProcessRequest& request, pid_t& child, std::intptr_t& handle) noexcept {
    int ends[2];
    const auto connect = [&] { return ::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends); };
    if (systemCall("startDetached", connect) != 0) return errno;
    const Descriptor ours(ends[0]);
    Descriptor theirs(ends[1]);
    const pid_t helper = forkHelper(plan, request, theirs.get());
    if (helper < 0) return errno;
    theirs = Descriptor();
    Report report;
    const ssize_t size = uninterrupted([&] { return ::recv(ours.get(), &report, sizeof report, 0); });
    if (size != sizeof report) report.error = ECHILD;
    child = report.child;
    if (report.error == 0) handle = openProcess(static_cast<std::uint32_t>(child));
    const char answer = 0;
    ::send(ours.get(), &answer, sizeof answer, MSG_NOSIGNAL);
    uninterrupted([&] { return ::waitpid(helper, nullptr, 0); });
    return report.error;
}

// A file without the permission to be executed is a document, so the error is not that access is denied.
ErrorCode startError(int error, const std::string& program) noexcept {
    struct stat status {};
    if (error == EACCES && program.find('/') != std::string::npos && ::stat(program.c_str(), &status) == 0 &&
        S_ISREG(status.st_mode) && ::access(program.c_str(), X_OK) != 0) {
        return errorBadExecutable;
    }
    return errorFromErrno(error);
}

// These two return whether the program has ended, at once or after blocking until then.
bool hasVanished(pid_t process, int handle, bool block) noexcept {
    if (handle < 0) return ::kill(process, 0) != 0 && errno == ESRCH;
    pollfd polled{handle, POLLIN, 0};
    return systemCall("waitForProcess", [&] { return ::poll(&polled, 1, block ? -1 : 0); }) > 0;
}

bool takeEnd(pid_t process, bool block, int& exitCode) noexcept {
    int status = 0;
    // The call fails only if there is no child: the program ignores SIGCHLD, or waits for any child itself.
    const pid_t result = uninterrupted([&] { return ::waitpid(process, &status, block ? 0 : WNOHANG); });
    if (result == process) exitCode = WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
    return result != 0;
}

void sleepUntilEnd(int handle, std::uint32_t timeout) noexcept {
    pollfd polled{handle, POLLIN, 0};
    const std::uint32_t most = handle < 0 ? kLookAgainAfter : std::numeric_limits<int>::max();
    ::poll(&polled, handle < 0 ? 0 : 1, static_cast<int>(std::min(timeout, most)));
}

}  // namespace

Process::~Process() {
    if (m_handle >= 0) ::close(static_cast<int>(m_handle));
}

ErrorCode Process::start(const ProcessRequest& request) {
    std::vector<std::string> words = splitArguments(request.commandLine);
    if (words.empty()) return errorInvalidParameter;
    SpawnPlan plan;
    reapAbandoned();
    // Reserves a descriptor for the handle of the program.
    Descriptor probe(request.wantsHandle ? openProcess(static_cast<std::uint32_t>(::getpid())) : -1);
    ProcessRequest effective = request;
    effective.detached = request.detached || (request.wantsHandle && !probe.isOpen());
    if (const int error = plan.prepare(effective, words); error != 0) return errorFromErrno(error);
    pid_t child = 0;
    int error = injectedFault("startProcess");
    if (error == 0) error = effective.detached ? runDetached(plan, effective, child, m_handle) : plan.run(child);
    if (error != 0) return startError(error, words.front());
    m_id = static_cast<std::uint32_t>(child);
    m_detached = effective.detached;
    probe.close();
    if (request.wantsHandle && m_handle < 0) m_handle = openProcess(m_id);
    if (request.wantsHandle && m_handle < 0 && !m_detached) abandon(child);
    return errorSuccess;
}

bool Process::wait(std::uint32_t timeout) noexcept {
    const Deadline end = Deadline::after(timeout);
    const auto process = static_cast<pid_t>(m_id);
    while (!m_ended) {
        const std::uint32_t rest = end.rest();
        const bool block = rest == kInfinite;
        m_ended =
            m_detached ? hasVanished(process, static_cast<int>(m_handle), block) : takeEnd(process, block, m_exitCode);
        if (m_ended || rest == 0) break;
        if (m_handle < 0 && !m_detached) m_handle = openProcess(m_id);
        sleepUntilEnd(static_cast<int>(m_handle), rest);
    }
    return m_ended;
}

// The number of the group stays in use at least until a wait has taken the end of the program.
void Process::endGroup() noexcept {
    ::kill(-static_cast<pid_t>(m_id), SIGKILL);
}

std::intptr_t Process::duplicateHandle() noexcept {
    if (m_handle < 0 && !m_ended && !m_detached && m_id != 0) m_handle = openProcess(m_id);
    if (m_handle < 0) return kInheritHandle;
    return systemCall("duplicateHandle",
                      [&] { return ::fcntl(static_cast<int>(m_handle), F_DUPFD_CLOEXEC, kFirstOtherDescriptor); });
}

ErrorCode openDocument(const std::string& path) {
    ProcessRequest request;
    request.commandLine = joinArguments({"xdg-open", path});
    request.detached = true;
    Process opener;
    return opener.start(request);
}

}  // namespace KestSupport::platform
