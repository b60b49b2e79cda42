// Command lines, child processes and how they end.
#include "platform/process.h"

#include <chrono>
#include <filesystem>
#include <iostream>

#include "kit/child_process.h"
#include "kit/environment_guard.h"
#include "kit/system.h"
#include "kit/temporary_folder.h"
#include "platform/wait.h"

namespace {

using kit::ChildProcess;
using kit::ChildRole;
using namespace KestSupport::platform;
using Words = std::vector<std::string>;

const ChildRole g_ends("ends", [](const Words& arguments) { return std::stoi(arguments.at(0)); });
// Writes what it inherited, then copies its input to the end.
const ChildRole g_copies("copies", [](const Words& arguments) {
    std::cout << std::filesystem::current_path().string() << std::getenv("KEST_A") << std::getenv("KEST_B");
    for (const std::string& argument : arguments)
        std::cout << '\0' << argument;
    std::cout << '\0' << std::cin.rdbuf();
    return 0;
});

Process started(ProcessRequest request, const std::string& command) {
    request.commandLine = " \t" + ChildProcess::commandOfRole(command);
    Process process;
    EXPECT_EQ(process.start(request), 0u);
    return process;
}

TEST(Process, ReceivesWhatRequestNames) {
    const Words arguments{"", " ", "--", "a'b\"c\\", "\\\\\"", "line\nend", "$HOME`*#~;&|<>(){}[]!=\x01\xE4\xFF"};
    EXPECT_EQ(splitArguments(joinArguments(arguments)), arguments);
    const kit::TemporaryFolder folder;
    std::FILE* const input = std::fopen(folder.write("input", "text").c_str(), "r");
    std::FILE* const output = std::fopen(folder.pathOf("output").c_str(), "w");
    ProcessRequest request;
    request.workingDirectory = folder.path();
    request.environment = {{"KEST_A", "earlier"}, {"KEST_A", "1=2"}, {"KEST_B", ""}};
    request.standardHandles = {kit::handleOf(input), kit::handleOf(output), kNullDevice};
    kit::EnvironmentGuard environment;
    environment.set("KEST_A", "of the parent");
    EXPECT_TRUE(started(request, "copies " + joinArguments(arguments)).wait(kInfinite));
    EXPECT_EQ(std::fclose(input) + std::fclose(output), 0);
    std::string expected = folder.path() + "1=2";
    for (const std::string& argument : arguments)
        expected += '\0' + argument;
    EXPECT_EQ(folder.readText("output"), expected + '\0' + "text");
}

TEST(CommandLine, GetsQuotesAroundThePathOfItsProgramOnly) {
    const kit::TemporaryFolder folder;
    EXPECT_EQ(splitArguments(quoteArgument("a \x95\\")), Words{"a \x95\\"}) << "one character in the code page 932";
    const std::string program = folder.write("a b.exe", "");
    for (const char* const arguments : {"", " ", " .", " a. ..", " b.exe"})
        EXPECT_EQ(quoteProgram(program + arguments), quoteArgument(program) + arguments);
}

TEST(Process, IsWaitedForWithTimeLimit) {
    for (const bool detached : {false, true}) {
        const auto [readEnd, writeEnd] = kit::inheritablePipe();
        ProcessRequest request;
        request.environment = {{"KEST_A", ""}, {"KEST_B", ""}};
        request.standardHandles = {readEnd, kNullDevice, kInheritHandle};
        request.detached = detached;
        Process process = started(request, "copies");
        const std::intptr_t handle = process.duplicateHandle();
        EXPECT_FALSE(process.wait(0));
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_FALSE(process.wait(30));
        EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(30));
        EXPECT_FALSE(detached && ChildProcess::anyLeft());
        for (const std::intptr_t end : {readEnd, writeEnd})
            kit::closeHandle(reinterpret_cast<void*>(end));
        EXPECT_TRUE(process.wait(kInfinite));  // no other process has the other end of its input
        EXPECT_EQ(process.exitCode(), detached ? kExitUnknown : 0);
        EXPECT_GT(handle, 2);
        kit::closeHandle(reinterpret_cast<void*>(handle));
        EXPECT_FALSE(ChildProcess::anyLeft());
    }
}

TEST(Process, ReportsWhyProgramCannotStart) {
    const kit::TemporaryFolder folder;
    const std::string program = ChildProcess::commandOfRole("ends 0");
    const std::array<std::intptr_t, 3> nothing{kNullDevice, kNullDevice, kNullDevice};
    const std::pair<std::string, ErrorCode> rows[] = {
        {" ", errorInvalidParameter},
        {joinArguments({folder.write("document", "text")}), errorBadExecutable},
        {joinArguments({folder.pathOf("absent")}), errorFileNotFound},
        {"kest-no-such-program", errorFileNotFound}};
    for (const bool detached : {false, true}) {
        for (const auto& [line, error] : rows)
            EXPECT_EQ(Process().start({line, "", {}, nothing, detached}), error) << line;
        EXPECT_EQ(Process().start({program, "", {}, {99999, kNullDevice, kNullDevice}, detached}), errorInvalidHandle);
        EXPECT_NE(Process().start({program, folder.pathOf("absent"), {}, nothing, detached}), errorSuccess);
    }
    EXPECT_FALSE(ChildProcess::anyLeft());
}

}  // namespace
