#include "platform/process.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <random>

#include "kit/child_process.h"
#include "kit/failing_calls.h"
#include "kit/gate.h"
#include "kit/temporary_folder.h"
#include "platform/wait.h"

namespace {

using kit::ChildProcess;
using kit::ChildRole;
using namespace KestSupport::platform;
using Words = std::vector<std::string>;

TEST(Process, TakesCommandLinesApartByTheShellsQuotes) {
    const struct {
        const char* commandLine;
        Words words;
    } rows[] = {
        {"", {}},
        {" \t\n", {}},
        {"a b\tc\nd ", {"a", "b", "c", "d"}},
        {"'a b' \"c d\" e' 'f", {"a b", "c d", "e f"}},
        {"'' \"\"", {"", ""}},
        {R"(a\ b \"c\" \\ 'd\' "e\f")", {"a b", "\"c\"", "\\", "d\\", "e\\f"}},
        {R"("\" \\ \$ \`")", {"\" \\ $ `"}},
        {"a\\\nb \\\n c \"d\\\ne\" \\\n", {"ab", "c", "de"}},
        {"'never closed ", {"never closed "}},
        {"\"never closed\\", {"never closed\\"}},
        {"$HOME *.txt ~ #a ;b&c|d>e", {"$HOME", "*.txt", "~", "#a", ";b&c|d>e"}},
        {"\\", {"\\"}},
    };
    for (const auto& row : rows)
        EXPECT_EQ(splitArguments(row.commandLine), row.words) << row.commandLine;
}

const ChildRole g_exits("exits", [](const Words& arguments) { return std::stoi(arguments.at(0)); });
const ChildRole g_raises("raises", [](const Words& arguments) { return std::raise(std::stoi(arguments.at(0))); });
const ChildRole g_echoes("echoes", [](const Words& arguments) {
    for (const std::string& argument : arguments)
        std::cout << argument << '\0';
    return 0;
});
// Copies its input to its output, and lasts as long as there is input.
const ChildRole g_copies("copies", [](const Words&) {
    std::cout << std::cin.rdbuf();
    return 0;
});
const ChildRole g_describes("describes", [](const Words&) {
    std::size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        files += entry.path().filename().string().size() > 0 ? 1 : 0;
    sigset_t blocked;
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    std::cout << files - 1 << ' ' << std::filesystem::current_path().string() << ' ' << std::getenv("KEST_A") << ' '
              << std::getenv("KEST_B") << ' ' << sigismember(&blocked, SIGTERM);
    return 0;
});

struct File {
    std::FILE* const stream;
    File(const std::string& name, const char* mode) : stream(std::fopen(name.c_str(), mode)) {}
    ~File() { std::fclose(stream); }
    std::intptr_t handle() const { return fileno(stream); }
};

// Starts this program in a role.
Process started(const std::string& command, ProcessRequest request = {}) {
    request.commandLine = ChildProcess::commandOfRole(command);
    Process process;
    EXPECT_EQ(process.start(request), 0u) << command;
    return process;
}

TEST(Process, TellsExitCodesFromSignals) {
    const std::pair<std::string, int> rows[] = {
        {"exits 0", 0}, {"exits 7", 7}, {"exits 137", 137}, {"raises 9", -9}, {"raises 15", -15}};
    for (const auto& [command, exitCode] : rows) {
        for (const std::uint32_t timeout : {kInfinite, 60'000u}) {
            Process process = started(command);
            ASSERT_TRUE(process.wait(timeout));
            EXPECT_EQ(process.exitCode(), exitCode) << command;
            EXPECT_TRUE(process.wait(0)) << "the end stays";
        }
    }
    EXPECT_FALSE(ChildProcess::anyLeft());
}

TEST(Process, ArgumentsOfAnyBytesReachTheProgram) {
    const kit::TemporaryFolder folder;
    std::mt19937 random(7);
    const std::string special = "\"'\\ \t\n$`*#~;&|<>(){}[]!=a\x01\xE4\xFF";
    Words arguments{"", " ", "--", "a'b\"c\\", "\\\\\"", "line\nend"};
    while (arguments.size() < 400) {
        std::string argument(random() % 12, ' ');
        for (char& c : argument)
            c = special[random() % special.size()];
        arguments.push_back(argument);
    }
    EXPECT_EQ(splitArguments(joinArguments(arguments)), arguments);
    {
        const File output(folder.pathOf("output"), "w");
        ProcessRequest request;
        request.standardHandles = {kNullDevice, output.handle(), kInheritHandle};
        EXPECT_TRUE(started("echoes " + joinArguments(arguments), request).wait(kInfinite));
    }
    std::string expected;
    for (const std::string& argument : arguments)
        expected += argument + '\0';
    EXPECT_EQ(folder.read("output"), expected);
}

TEST(Process, AChildGetsItsStandardHandlesFolderAndEnvironmentAndNothingElse) {
    const kit::TemporaryFolder folder;
    folder.write("input", "text");
    const File output(folder.pathOf("output"), "w+");
    const File leaked(folder.pathOf("input"), "r");
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
    ProcessRequest request;
    request.workingDirectory = folder.path();
    request.environment = {{"KEST_A", "1=2"}, {"KEST_B", ""}};
    request.standardHandles = {kNullDevice, output.handle(), kInheritHandle};
    ::setenv("KEST_A", "of the parent", 1);
    EXPECT_TRUE(started("describes", request).wait(kInfinite));
    ::unsetenv("KEST_A");
    pthread_sigmask(SIG_UNBLOCK, &blocked, nullptr);
    EXPECT_EQ(folder.read("output"), "3 " + folder.path() + " 1=2  0");

    const File copied(folder.pathOf("copied"), "w");
    request.standardHandles = {leaked.handle(), copied.handle(), kNullDevice};
    EXPECT_TRUE(started("copies", request).wait(kInfinite));
    EXPECT_EQ(folder.read("copied"), "text");
}

TEST(Process, AChildThatRunsIsWaitedForAndTheTimeLimitHolds) {
    for (const bool detached : {false, true}) {
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        ProcessRequest request;
        request.standardHandles = {ends[0], kNullDevice, kInheritHandle};
        request.detached = detached;
        Process process = started("copies", request);
        const std::intptr_t handle = process.duplicateHandle();
        EXPECT_GT(handle, 2);
        EXPECT_FALSE(process.wait(0));
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_FALSE(process.wait(30));
        EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(30));
        EXPECT_EQ(ChildProcess::anyLeft(), !detached);
        close(ends[0]);
        close(ends[1]);
        EXPECT_TRUE(process.wait(kInfinite)) << "nobody else holds the other end of its input";
        EXPECT_EQ(process.exitCode(), detached ? kExitUnknown : 0);
        EXPECT_EQ(close(static_cast<int>(handle)), 0);
        EXPECT_FALSE(ChildProcess::anyLeft());
    }
}

TEST(Process, SaysWhyAProgramIsNotStarted) {
    const kit::TemporaryFolder folder;
    const std::string document = folder.write("document.txt", "text");
    const std::string broken = folder.write("broken", "text");
    std::filesystem::permissions(broken, std::filesystem::perms::owner_all);
    const std::pair<std::string, ErrorCode> rows[] = {{"", errorInvalidParameter},
                                                      {folder.pathOf("absent"), errorFileNotFound},
                                                      {"kest-no-such-program", errorFileNotFound},
                                                      {document, errorBadExecutable},
                                                      {broken, errorBadExecutable},
                                                      {document + "/below", errorPathNotFound},
                                                      {folder.path(), errorAccessDenied}};
    for (const bool detached : {false, true}) {
        for (const auto& [program, error] : rows) {
            ProcessRequest request;
            request.commandLine = program.empty() ? "" : quoteArgument(program);
            request.detached = detached;
            EXPECT_EQ(Process().start(request), error) << program;
        }
        ProcessRequest request;
        request.commandLine = "true";
        request.detached = detached;
        request.workingDirectory = folder.pathOf("absent");
        EXPECT_EQ(Process().start(request), errorFileNotFound);
        request.workingDirectory.clear();
        request.standardHandles[0] = 99999;
        EXPECT_EQ(Process().start(request), errorInvalidHandle);
    }
    EXPECT_FALSE(ChildProcess::anyLeft());
}

TEST(Process, NothingIsLeftBehindWhicheverCallFails) {
    const auto openFiles = [] { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); };
    const auto before = openFiles();
    for (const bool detached : {false, true}) {
        ErrorCode result = 1;
        for (int failing = 1; result != 0 || kit::FailingCalls::seen() >= failing; ++failing) {
            const kit::FailingCalls calls("", failing, false);
            ProcessRequest request;
            request.commandLine = "true";
            request.detached = detached;
            request.workingDirectory = "/";
            request.standardHandles = {0, 1, kNullDevice};
            Process process;
            result = process.start(request);
            if (result == 0) process.wait(60'000);
            EXPECT_TRUE(result == 0 || result == errorNotEnoughMemory) << result;
        }
        kit::await([] { return !ChildProcess::anyLeft(); });
        EXPECT_EQ(openFiles(), before);
    }
}

}  // namespace
