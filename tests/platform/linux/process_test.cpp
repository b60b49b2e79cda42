// Command lines, child processes and how they end.
#include "platform/process.h"

#include <chrono>
#include <csignal>
#include <filesystem>
#include <iostream>

#include "kit/child_process.h"
#include "kit/temporary_folder.h"
#include "platform/common/fault_seam.h"
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

std::ptrdiff_t openFiles() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}) - 1;
}

const ChildRole g_ends("ends", [](const Words& arguments) {
    const int number = std::stoi(arguments.at(0));
    return number < 0 ? std::raise(-number) : number;
});
// Writes what it inherited, then copies its input to the end.
const ChildRole g_copies("copies", [](const Words& arguments) {
    sigset_t blocked;
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    std::cout << openFiles() << sigismember(&blocked, SIGTERM) << std::filesystem::current_path().string()
              << std::getenv("KEST_A") << std::getenv("KEST_B");
    for (const std::string& argument : arguments)
        std::cout << '\0' << argument;
    std::cout << '\0' << std::cin.rdbuf();
    return 0;
});

Process started(ProcessRequest request, const std::string& command) {
    request.commandLine = ChildProcess::commandOfRole(command);
    Process process;
    EXPECT_EQ(process.start(request), 0u);
    return process;
}

TEST(Process, ReportsExitCodesAndSignals) {
    for (const int end : {0, 7, 137, -9, -15}) {
        for (const std::uint32_t timeout : {kInfinite, 60'000u}) {
            Process process = started({}, "ends " + std::to_string(end));
            EXPECT_TRUE(process.wait(timeout));
            EXPECT_EQ(process.exitCode(), end);
        }
    }
    EXPECT_FALSE(ChildProcess::anyLeft());
}

TEST(Process, ReceivesOnlyWhatRequestNames) {
    const Words arguments{"", " ", "--", "a'b\"c\\", "\\\\\"", "line\nend", "$HOME`*#~;&|<>(){}[]!=\x01\xE4\xFF"};
    const kit::TemporaryFolder folder;
    std::FILE* const input = std::fopen(folder.write("input", "text").c_str(), "r");
    std::FILE* const output = std::fopen(folder.pathOf("output").c_str(), "w");
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
    ProcessRequest request;
    request.workingDirectory = folder.path();
    request.environment = {{"KEST_A", "1=2"}, {"KEST_B", ""}};
    request.standardHandles = {fileno(input), fileno(output), kNullDevice};
    ::setenv("KEST_A", "of the parent", 1);
    EXPECT_TRUE(started(request, "copies " + joinArguments(arguments)).wait(kInfinite));
    ::unsetenv("KEST_A");
    pthread_sigmask(SIG_UNBLOCK, &blocked, nullptr);
    EXPECT_EQ(std::fclose(input) + std::fclose(output), 0);
    std::string expected = "30" + folder.path() + "1=2";
    for (const std::string& argument : arguments)
        expected += '\0' + argument;
    EXPECT_EQ(folder.read("output"), expected + '\0' + "text");
}

TEST(Process, IsWaitedForWithTimeLimit) {
    for (const bool detached : {false, true}) {
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        ProcessRequest request;
        request.environment = {{"KEST_A", ""}, {"KEST_B", ""}};
        request.standardHandles = {ends[0], kNullDevice, kInheritHandle};
        request.detached = detached;
        Process process = started(request, "copies");
        const std::intptr_t handle = process.duplicateHandle();
        EXPECT_FALSE(process.wait(0));
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_FALSE(process.wait(30));
        EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(30));
        EXPECT_EQ(ChildProcess::anyLeft(), !detached);
        EXPECT_EQ(close(ends[0]) + close(ends[1]), 0);
        EXPECT_TRUE(process.wait(kInfinite)) << "another process holds the other end of its input";
        EXPECT_EQ(process.exitCode(), detached ? kExitUnknown : 0);
        EXPECT_GT(handle, STDERR_FILENO);
        EXPECT_EQ(close(static_cast<int>(handle)), 0);
        EXPECT_FALSE(ChildProcess::anyLeft());
    }
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

TEST(Process, ReportsWhyProgramCannotStart) {
    const kit::TemporaryFolder folder;
    const std::string document = folder.write("document", "text"), broken = folder.write("broken", "text");
    std::filesystem::permissions(broken, std::filesystem::perms::owner_all);
    const std::pair<std::string, ErrorCode> rows[] = {{" ", errorInvalidParameter},
                                                      {document, errorBadExecutable},
                                                      {broken, errorBadExecutable},
                                                      {folder.pathOf("absent"), errorFileNotFound},
                                                      {folder.path(), errorAccessDenied},
                                                      {"kest-no-such-program", errorFileNotFound},
                                                      {document + "/below", errorPathNotFound}};
    for (const bool detached : {false, true}) {
        for (const auto& [program, error] : rows)
            EXPECT_EQ(Process().start({program, "", {}, {0, 1, 2}, detached}), error) << program;
        EXPECT_EQ(Process().start({"true", folder.pathOf("absent"), {}, {0, 1, 2}, detached}), errorFileNotFound);
        EXPECT_EQ(Process().start({"true", "", {}, {99999, 1, 2}, detached}), errorInvalidHandle);
    }
    EXPECT_FALSE(ChildProcess::anyLeft());
}

}  // namespace
