// Tests programs of a shell that KestExecuteProgram and KestRunProgram start: signals, pipes, groups, children and the
// opener of documents.
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <limits>

#include "kit/child_process.h"
#include "kit/environment_guard.h"
#include "kit/failing_calls.h"
#include "kit/gate.h"
#include "kit/log_capture.h"
#include "support/program_run.h"
#include "support/utilities.h"

namespace {

using namespace KestSupport;
using kit::ChildProcess;
using Texts = std::vector<std::string>;
namespace fs = std::filesystem;

void* handle(int descriptor) {
    return reinterpret_cast<void*>(static_cast<std::intptr_t>(descriptor));
}
int descriptor(void* handle) {
    return static_cast<int>(reinterpret_cast<std::intptr_t>(handle));
}

TEST(ExecuteProgram, WaitsOrReturnsAHandle) {
    int ends[2], exitCode = -5;
    ASSERT_EQ(pipe(ends), 0);
    void* process = nullptr;
    EXPECT_TRUE(KestExecuteProgram("sh -c 'kill -9 $$'", true, nullptr, &exitCode));
    EXPECT_EQ(exitCode, -9);

    EXPECT_TRUE(KestExecuteProgramEx("true", handle(-1), handle(ends[1]), false, nullptr, nullptr));
    ASSERT_TRUE(KestExecuteProgramEx("sh -c 'read a; echo $a; exit 4'", handle(ends[0]), handle(-1), false, &process,
                                     &exitCode));
    EXPECT_EQ(exitCode, 0);
    siginfo_t end{};
    const auto id = static_cast<id_t>(descriptor(process));
    EXPECT_EQ(waitid(P_PIDFD, id, &end, WEXITED | WNOHANG), 0);
    EXPECT_EQ(end.si_pid, 0) << "the program still waits for a line";
    EXPECT_EQ(write(ends[1], "\n", 1) + close(ends[0]) + close(ends[1]), 1);
    EXPECT_EQ(waitid(P_PIDFD, id, &end, WEXITED), 0);
    EXPECT_EQ(end.si_status, 4);
    EXPECT_EQ(close(descriptor(process)), 0);
    EXPECT_FALSE(ChildProcess::anyLeft());
}

TEST(ExecuteProgram, LeavesNoChildren) {
    for (const int first : {1, 2}) {
        int exitCode = 5;
        void* process = &exitCode;
        {
            const kit::FailingCalls calls("openProcess", first);
            EXPECT_TRUE(KestExecuteProgram("true", false, &process, &exitCode));
        }
        EXPECT_EQ(process, nullptr);
        // When the second call fails, the next start of a program waits for this one.
        kit::await([&] {
            return (first == 1 || KestExecuteProgram("true", true, nullptr, nullptr)) && !ChildProcess::anyLeft();
        });
    }
    const auto before = std::signal(SIGCHLD, SIG_IGN);
    int exitCode = 0;
    EXPECT_TRUE(KestExecuteProgram("sh -c 'exit 3'", true, nullptr, &exitCode));
    EXPECT_EQ(exitCode, std::numeric_limits<int>::min());
    std::signal(SIGCHLD, before);
}

TEST(ExecuteProgram, OpensDocuments) {
    const kit::TemporaryFolder folder;
    const std::string document = folder.write("a document", "text");
    // The opener changes the time of its argument. Temporary folders may forbid to run files of their own.
    fs::create_symlink("/bin/touch", folder.pathOf("xdg-open"));
    const auto old = fs::last_write_time(document) - std::chrono::hours(24);
    fs::last_write_time(document, old);
    kit::EnvironmentGuard environment;
    environment.set("PATH", folder.path() + ":" + std::getenv("PATH"));
    const kit::LogCapture log(1);
    int exitCode = 5;
    void* process = &exitCode;
    EXPECT_TRUE(KestExecuteProgram(KestJoinArguments({document, "argument"}), true, &process, &exitCode));
    EXPECT_EQ(exitCode, 0);
    EXPECT_EQ(process, nullptr);
    kit::await([&] { return fs::last_write_time(document) != old; });
    environment.set("PATH", "/none");
    EXPECT_TRUE(KestExecuteProgram(KestJoinArguments({document}), true, nullptr, nullptr));
    EXPECT_FALSE(KestExecuteProgram("kest-no-such-program", false, &process, &exitCode));
    EXPECT_EQ(exitCode, -1);
    const std::string failed = "KestExecuteProgram: Failed to start process. Error code :";
    const std::string opened = "KestExecuteProgram: Process started using ShellExecute. ";
    EXPECT_EQ(log.messages(), (Texts{failed + "193", opened + "42 (Error code: 0)", failed + "193",
                                     opened + "2 (Error code: 2)", failed + "2"}));
}

TEST(RunProgram, EndsTheWholeGroup) {
    KestProgramResult result;
    // A busy machine may need several attempts until the program has written within its time.
    for (int timeout = 100; !result.output.ends_with('\n'); timeout *= 2)
        result = KestRunProgram(
            {.arguments = {"sh", "-c", "sleep 1000 & echo $! >> /dev/stdout; wait"}, .timeout = timeout});
    EXPECT_EQ(result.exitCode, -9);
    const fs::path status = "/proc/" + result.output.substr(0, result.output.size() - 1) + "/cmdline";
    kit::await([&] {  // the kernel clears the command line of a program that ends
        std::ifstream file(status);
        return file.peek() == std::ifstream::traits_type::eof();
    });
    EXPECT_FALSE(ChildProcess::anyLeft());
}

}  // namespace
