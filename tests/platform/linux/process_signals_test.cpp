// Command lines by the rules of the shell, and what Linux adds to child processes: signals, descriptors, permissions.
#include <csignal>
#include <filesystem>

#include "kit/child_process.h"
#include "kit/temporary_folder.h"
#include "platform/common/fault_seam.h"
#include "platform/process.h"
#include "platform/wait.h"

namespace {

using kit::ChildProcess;
using kit::ChildRole;
using namespace KestSupport::platform;
using Words = std::vector<std::string>;

TEST(Arguments, FollowQuotesOfShell) {
    const std::pair<const char*, Words> rows[] = {
        {"", {}},
        {" a b\tc\nd ", {"a", "b", "c", "d"}},
        {"'a b' \"c d\" e' 'f '' \"\"", {"a b", "c d", "e f", "", ""}},
        {R"(a\ b \"c\" \\ 'd\' "e\f" "\" \\ \$ \`")", {"a b", "\"c\"", "\\", "d\\", "e\\f", "\" \\ $ `"}},
        {"a\\\nb \\\n c \"d\\\ne\" \\\n", {"ab", "c", "de"}},
        {"'never closed ", {"never closed "}},
        {"\"never closed\\", {"never closed\\"}},
        {"$HOME *.txt ~ #a ;b&c|d>e \\", {"$HOME", "*.txt", "~", "#a", ";b&c|d>e", "\\"}},
    };
    for (const auto& [commandLine, words] : rows)
        EXPECT_EQ(splitArguments(commandLine), words) << commandLine;
}

// Ends by a signal, or with the number of its open files, plus 100 if SIGTERM is blocked.
const ChildRole g_ends("ends", [](const Words& arguments) {
    if (!arguments.empty()) return std::raise(std::stoi(arguments[0]));
    sigset_t blocked;
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    const auto files = std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}) - 1;
    return static_cast<int>(files) + 100 * sigismember(&blocked, SIGTERM);
});

TEST(Process, InheritsNoSignalsAndFiles) {
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
    std::FILE* const inheritable = std::tmpfile();
    for (const auto& [command, code] : {std::pair{"ends", 3}, {"ends 9", -9}, {"ends 15", -15}}) {
        ProcessRequest request;
        request.commandLine = ChildProcess::commandOfRole(command);
        Process process;
        EXPECT_EQ(process.start(request), 0u);
        EXPECT_TRUE(process.wait(kInfinite));
        EXPECT_EQ(process.exitCode(), code);
    }
    std::fclose(inheritable);
    pthread_sigmask(SIG_UNBLOCK, &blocked, nullptr);
}

// Kills this process after the report of a program that it has started, and before the answer.
const ChildRole g_killed("killed", [](const Words&) {
    setFaultHook([](const char* call) noexcept { return std::string_view(call) == "openProcess" ? std::raise(9) : 0; });
    return static_cast<int>(Process().start({"true", "", {}, {kNullDevice, kNullDevice, kNullDevice}, true}));
});

TEST(Process, LeavesNoCopyOfKilledParent) {
    // wait returns when no process holds the output.
    EXPECT_EQ(ChildProcess::inRole("killed").wait(), -9);
}

TEST(Process, ReportsWhyFileIsNoProgram) {
    const kit::TemporaryFolder folder;
    const std::string document = folder.write("document", "text"), broken = folder.write("broken", "text");
    std::filesystem::permissions(broken, std::filesystem::perms::owner_all);
    for (const bool detached : {false, true}) {
        for (const auto& [program, error] : {std::pair{broken, errorBadExecutable},
                                             {folder.path(), errorAccessDenied},
                                             {document + "/below", errorPathNotFound}})
            EXPECT_EQ(Process().start({joinArguments({program}), "", {}, {0, 1, 2}, detached}), error) << program;
        EXPECT_EQ(Process().start({"true", folder.pathOf("absent"), {}, {0, 1, 2}, detached}), errorFileNotFound);
    }
    EXPECT_FALSE(ChildProcess::anyLeft());
}

}  // namespace
