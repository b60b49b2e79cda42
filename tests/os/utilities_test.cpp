// Tests the functions for programs, expansion, the registry and error texts, and KestFindFile.
#include "support/utilities.h"

#include <cerrno>
#include <filesystem>
#include <iostream>
#include <set>
#include <sstream>

#include "kit/child_process.h"
#include "kit/environment_guard.h"
#include "kit/failing_calls.h"
#include "kit/failure_of.h"
#include "kit/log_capture.h"
#include "kit/registry.h"
#include "kit/system.h"
#include "platform/error.h"
#include "platform/process.h"
#include "support/program_run.h"

namespace {

using namespace KestSupport;
using kit::ChildProcess;
using Texts = std::vector<std::string>;
namespace fs = std::filesystem;

const kit::ChildRole g_ends("ends", [](const Texts& arguments) { return std::stoi(arguments.at(0)); });
const kit::ChildRole g_writes("writes", [](const Texts& arguments) {
    for (const std::string& argument : arguments)
        std::cout << argument << '|' << std::flush, std::cerr << argument.size() << '|';
    std::cout << std::getenv("KEST_A") << fs::current_path() << std::cin.get();
    return 3;
});
const kit::ChildRole g_loops("loops", [](const Texts& arguments) {
    for (;;) {
        std::cout << arguments.at(0) << std::flush;
        if (arguments.at(0).empty()) std::this_thread::sleep_for(std::chrono::hours(1));
    }
    return 0;
});

TEST(ExecuteProgram, StartsAndWaits) {
    const kit::LogCapture log;
    const std::string program = ChildProcess::commandOfRole("ends");
    void* process = nullptr;
    int exitCode = -5;
    EXPECT_TRUE(KestExecuteProgram(program + " 137", true, &process, &exitCode));
    EXPECT_EQ(exitCode, 137);
    kit::closeHandle(process);
    const Texts expected{"KestExecuteProgram: Execution Started.", "KestExecuteProgramEx: Execution Started.",
                         "KestExecuteProgram: nCreateFlag = 0", "KestExecuteProgram: Wait for process to finish.",
                         "KestExecuteProgram: Process done."};
    EXPECT_EQ(log.messages(), expected);
    process = nullptr;
    EXPECT_TRUE(KestExecuteProgram(program + " 0", false, &process, &exitCode));
    EXPECT_NE(process, nullptr);
    EXPECT_EQ(exitCode, 0);
    kit::closeHandle(process);
    EXPECT_TRUE(KestExecuteProgramEx(program + " 9", nullptr, nullptr, true, nullptr, &exitCode));
    EXPECT_EQ(exitCode, 9);
    EXPECT_FALSE(KestExecuteProgram("kest-no-such-program", false, &process, &exitCode));
    EXPECT_EQ(exitCode, -1);
    EXPECT_EQ(log.messages().back(), "KestExecuteProgram: Failed to start process. Error code :2");
}

Texts inRole(const std::string& role, const Texts& more) {
    Texts arguments = platform::splitArguments(ChildProcess::commandOfRole(role));
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
}

TEST(RunProgram, ReturnsOutputOfListedArguments) {
    const kit::TemporaryFolder folder;
    const KestProgramResult result = KestRunProgram({.arguments = inRole("writes", {"a b", "", "'\"$A\\"}),
                                                     .workingDirectory = folder.path(),
                                                     .environment = {{"KEST_A", "value"}}});
    std::ostringstream rest;
    rest << "value" << fs::canonical(folder.path()) << -1;
    EXPECT_EQ(result.output, "a b||'\"$A\\|" + rest.str());
    EXPECT_EQ(result.errors, "3|0|5|");
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_FALSE(result.timedOut || result.exceededOutput);
    const std::string nul("a\0b", 3), program = inRole("ends", {}).at(0);
    const std::pair<KestProgramRun, int> rows[] = {{{.arguments = {}}, 87},
                                                   {{.arguments = {program, nul}}, 87},
                                                   {{.arguments = {program}, .workingDirectory = nul}, 87},
                                                   {{.arguments = {program}, .environment = {{"a=b", ""}}}, 87},
                                                   {{.arguments = {"kest-no-such-program"}}, 2}};
    int exitCode = 0;
    EXPECT_TRUE(KestExecuteProgram(KestJoinArguments(inRole("ends", {"7 of \"9\""})), true, nullptr, &exitCode));
    EXPECT_EQ(exitCode, 7);
    for (const auto& [run, code] : rows) {
        const std::string name = run.arguments.empty() ? "" : run.arguments[0];
        EXPECT_EQ(kit::failureOf([&, &wrong = run] { KestRunProgram(wrong); }),
                  "KestRunProgram: Could not start " + name + ": " + std::to_string(code));
    }
    const kit::FailingCalls failing("openCapture");
    EXPECT_ANY_THROW(KestRunProgram({.arguments = inRole("ends", {"0"})}));
}

TEST(RunProgram, EndsByForceWhatTakesTooLongOrWritesTooMuch) {
    const KestProgramResult late = KestRunProgram({.arguments = inRole("loops", {""}), .timeout = 1});
    EXPECT_TRUE(late.timedOut && !late.exceededOutput);
    EXPECT_NE(late.exitCode, 0);
    const KestProgramResult much = KestRunProgram({.arguments = inRole("loops", {"abc"}), .outputLimit = 5});
    EXPECT_EQ(much.output, "abcab");
    EXPECT_TRUE(much.exceededOutput && !much.timedOut);
    const KestProgramResult exact = KestRunProgram(
        {.arguments = inRole("ends", {"7"}), .timeout = std::numeric_limits<int>::max(), .outputLimit = 1});
    EXPECT_FALSE(exact.timedOut || exact.exceededOutput);
    EXPECT_EQ(exact.exitCode, 7);
}

TEST(ExpandString, ReplacesReferences) {
    kit::EnvironmentGuard environment;
    environment.set("KEST_HOME", "/h");
    environment.set("KEST_NONE", std::nullopt);
    KestProperties<std::string> properties;
    for (const char* line : {"p=1", "p=2", "nest=<KEST_HOME>/n", "same=<same>", "grows=x<grows>", "open=<KEST_"})
        properties.addProperty(line, '=');
    const std::pair<std::string, std::string> rows[] = {{"x<KEST_HOME>y<p>", "x/hy1"},
                                                        {"<nest><KEST_HOME>>", "/h/n/h>"},
                                                        {"a>b<p>x<KEST_HOME", "a>b1x<KEST_HOME"},
                                                        {"[<KEST_NONE>][<>]", "[][]"},
                                                        {"<same>", "<same>"},
                                                        {"<open>HOME>!", "/h!"},
                                                        {"<grows>!<p><grows>", "x<grows>!1x<grows>"}};
    for (const auto& [text, result] : rows) {
        EXPECT_EQ(KestExpandString(text, properties), result);
        const kit::LogCapture traced;
        EXPECT_EQ(KestExpandString(text, properties), result);
    }
    const kit::LogCapture log;
    properties.addProperty("KEST_HOME", "property");
    EXPECT_EQ(KestExpandString("a<KEST_HOME>", properties), "aproperty");
    EXPECT_EQ(KestExpandString("a<KEST_HOME><p>b"), "a/hb");
    EXPECT_EQ(log.messages().at(3), "KestExpandString: expand = a<KEST_HOME><p>b");
    EXPECT_EQ(log.messages().at(4), "KestExpandString: Lookup KEST_HOME");
    EXPECT_EQ(log.messages().at(6), "KestExpandString: result = a/hb");
}

TEST(ExpandString, LimitsItsGrowth) {
    constexpr std::size_t kLimit = 1024 * 1024 + 100 * 11;  // for a text of 11 characters
    KestProperties<std::string> properties;
    for (int i = 0; i < 30; ++i) {
        const std::string next = "<twice" + std::to_string(i + 1) + ">";
        properties.addProperty("twice" + std::to_string(i), next + "y" + next);
    }
    properties.addProperty("p", "1");
    const std::string most = KestExpandString("<twice0><p>", properties);
    EXPECT_GT(most.size(), 50'000u);
    EXPECT_LT(most.size(), kLimit + 22);
    EXPECT_TRUE(most.ends_with(">1"));
}

TEST(GetEnvironmentVariable, ReadsTheRegistry) {
    kit::EnvironmentGuard environment;
    environment.setLocale("C");
    kit::Registry registry;
    const std::string key = "a\\b";
    registry.setText(key, "Text", "1.2");
    registry.setText(key, "Caf\u00E9", "\u20AC");
    registry.setText("Whole", "Whole", "both");
    registry.set(key, "Minus", 4, "\xFF\xFF\xFF\xFF");
    registry.set(key, "Big", 5, {"\x2A\1\0\0", 4});
    registry.set(key, "Short", 4, "\7");
    registry.set(key, "Ended", 1, {"a\0\0\0b\0", 6});
    registry.set(key, "Binary", 3, "\1");
    registry.set(key, "Expanded", 2, {"a\0", 2});
    const std::pair<const char*, const char*> rows[] = {
        {"A\\B\\tEXT", "1.2"}, {"a\\b\\Minus", "-1"}, {"a\\b\\Big", "298"}, {"a\\b\\Short", "7"},
        {"a\\b\\Ended", "a"},  {"Whole", "both"},     {"a\\Text", ""},      {"a\\b\\Caf\xE9", "\x80"}};
    for (const auto& [name, value] : rows)
        EXPECT_EQ(KestGetEnvironmentVariable(name), value) << name;
    for (const std::string name : {"Binary", "Expanded"})
        EXPECT_EQ(kit::failureOf([&] { KestGetEnvironmentVariable("a\\b\\" + name); }),
                  "KestKeyDataNotSupportedException - KestUtilities::KestGetEnvironmentVariable:"
                  "                         key-value data type not supported");
    for (const char digit : std::string_view("0123456789")) {  // equal sizes, within a tick of the clock
        registry.setText(key, "Text", std::string(1, digit));
        EXPECT_EQ(KestGetEnvironmentVariable("a\\b\\Text"), std::string(1, digit));
    }
    const kit::LogCapture log(1);
    const kit::FailingCalls calls("readRegistry", 1, true, EMFILE);
    EXPECT_EQ(KestGetEnvironmentVariable("a\\b\\Text"), "");
    EXPECT_EQ(log.messages(), Texts{"KestGetEnvironmentVariable: Could not read the registry (4)"});
}

TEST(OSErrorMessage, IsTheTextOrTheNumber) {
    const std::pair<int, std::string> rows[] = {{0, kit::systemText(0, 0)},
                                                {5, kit::systemText(5, EACCES)},
                                                {1060, platform::errorMessage(1060)},
                                                {123456, "Unrecognized error code: 123456 (0x0001e240)"},
                                                {-1, "Unrecognized error code: -1 (0xffffffff)"}};
    for (const auto& [code, expected] : rows) {
        std::string text = "before";
        wstring16 wide{1, 2};
        KestGetOSErrorMessage(code, text);
        KestGetOSErrorMessage(code, wide);
        EXPECT_EQ(text, expected);
        EXPECT_EQ(wide, wstring16(expected.begin(), expected.end()));
    }
}

TEST(FindFile, ReturnsMatchingNames) {
    const kit::TemporaryFolder folder;
    for (const char* name : {"a.txt", "b.txt", "c.doc"})
        folder.write(name, "");
    KestFindFile search(folder.path() + "\\*.txt");
    KestFindFile copy(folder.pathOf("none/*"));
    EXPECT_FALSE(copy.hasMore());
    copy = search;
    const std::set<fs::path> both{search.next(), copy.next()};  // a path may have other separators
    EXPECT_EQ(both, (std::set<fs::path>{folder.pathOf("a.txt"), folder.pathOf("b.txt")}));
    EXPECT_FALSE(search.hasMore());
    EXPECT_EQ(search.next() + copy.next(), "");
    const fs::path before = fs::current_path();
    fs::current_path(folder.path());
    EXPECT_EQ(KestFindFile("?.doc").next(), "c.doc");
    fs::current_path(before);
    const kit::LogCapture log(1);
    for (const char* call : {"openDirectory", "readDirectory"}) {
        const kit::FailingCalls calls(call, 1, true, EMFILE);
        for (KestFindFile failing(folder.pathOf("*")); failing.hasMore();)
            failing.next();
    }
    EXPECT_FALSE(KestFindFile(folder.pathOf("none/*")).hasMore());
    EXPECT_EQ(log.messages(),
              Texts(2, "KestFindFile: Could not read the directory of " + folder.pathOf("*") + " (24)"));
}

}  // namespace
