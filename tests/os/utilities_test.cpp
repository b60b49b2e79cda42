// Tests the functions for programs, expansion, the registry and error texts, and KestFindFile.
#include "support/utilities.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <limits>
#include <set>

#include "kit/child_process.h"
#include "kit/environment_guard.h"
#include "kit/failing_calls.h"
#include "kit/failure_of.h"
#include "kit/gate.h"
#include "kit/log_capture.h"
#include "support/exceptions.h"

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
    const kit::LogCapture log;
    int ends[2], exitCode = -5;
    ASSERT_EQ(pipe(ends), 0);
    void* process = nullptr;
    EXPECT_TRUE(KestExecuteProgram("sh -c 'exit 3'", true, &process, &exitCode));
    EXPECT_EQ(exitCode, 3);
    EXPECT_EQ(close(descriptor(process)), 0);
    EXPECT_EQ(log.messages(),
              (Texts{"KestExecuteProgram: Execution Started.", "KestExecuteProgramEx: Execution Started.",
                     "KestExecuteProgram: nCreateFlag = 0", "KestExecuteProgram: Wait for process to finish.",
                     "KestExecuteProgram: Process done."}));
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
    // The opener writes its argument to a file.
    folder.write("xdg-open", "#!/bin/sh\ncd '" + folder.path() + "'; printf %s \"$1\" > part; mv part opened\n");
    fs::permissions(folder.pathOf("xdg-open"), fs::perms::owner_all);
    kit::EnvironmentGuard environment;
    environment.set("PATH", folder.path() + ":" + std::getenv("PATH"));
    const kit::LogCapture log(1);
    int exitCode = 5;
    void* process = &exitCode;
    EXPECT_TRUE(KestExecuteProgram("'" + document + "' argument", true, &process, &exitCode));
    EXPECT_EQ(exitCode, 0);
    EXPECT_EQ(process, nullptr);
    kit::await([&] { return fs::exists(folder.pathOf("opened")); });
    EXPECT_EQ(folder.read("opened"), document);
    environment.set("PATH", "/none");
    EXPECT_TRUE(KestExecuteProgram("'" + document + "'", true, nullptr, nullptr));
    EXPECT_FALSE(KestExecuteProgram("kest-no-such-program", false, &process, &exitCode));
    EXPECT_EQ(exitCode, -1);
    const std::string failed = "KestExecuteProgram: Failed to start process. Error code :";
    const std::string opened = "KestExecuteProgram: Process started using ShellExecute. ";
    EXPECT_EQ(log.messages(), (Texts{failed + "193", opened + "42 (Error code: 0)", failed + "193",
                                     opened + "2 (Error code: 2)", failed + "2"}));
}

TEST(ExpandString, ReplacesReferences) {
    kit::EnvironmentGuard environment;
    environment.set("KEST_HOME", "/h");
    environment.set("KEST_NONE", std::nullopt);
    KestProperties<std::string> properties;
    for (const char* line : {"p=1", "p=2", "nest=<KEST_HOME>/n", "same=<same>", "grows=x<grows>"})
        properties.addProperty(line, '=');
    const std::pair<std::string, std::string> rows[] = {{"x<KEST_HOME>y<p>", "x/hy1"},
                                                        {"<nest><KEST_HOME>>", "/h/n/h>"},
                                                        {"a>b<p>x<KEST_HOME", "a>b1x<KEST_HOME"},
                                                        {"[<KEST_NONE>][<>]", "[][]"},
                                                        {"<same>", "<same>"},
                                                        {"<grows>!<p><grows>", "x<grows>!1x<grows>"}};
    for (const auto& [text, result] : rows)
        EXPECT_EQ(KestExpandString(text, properties), result);
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

class GetEnvironmentVariable : public testing::Test {
  protected:
    GetEnvironmentVariable() { environment.set("KEST_STATE_DIR", folder.path()); }
    std::string write(const std::string& values) {
        return folder.write("registry.reg", "Windows Registry Editor Version 5.00\n\n[HKLM\\a\\b]\n" + values);
    }
    kit::TemporaryFolder folder;
    kit::EnvironmentGuard environment;
};

TEST_F(GetEnvironmentVariable, ReadsTheRegistry) {
    write(
        "\"Text\"=\"1.2\"\n\"Minus\"=dword:ffffffff\n\"Big\"=hex(5):2a,01,00,00\n\"Short\"=hex(4):07\n"
        "\"Ended\"=hex(1):61,00,00,00,62,00\n\"Binary\"=hex:01\n\"Expanded\"=hex(2):61,00\n"
        "\"Caf\xC3\xA9\"=\"\xE2\x82\xAC\"\n[HKLM\\Whole]\n\"Whole\"=\"both\"\n");
    environment.setLocale("C");
    const std::pair<const char*, const char*> rows[] = {
        {"A\\B\\tEXT", "1.2"}, {"a\\b\\Minus", "-1"}, {"a\\b\\Big", "298"}, {"a\\b\\Short", "7"},
        {"a\\b\\Ended", "a"},  {"Whole", "both"},     {"a\\Text", ""},      {"a\\b\\Caf\xE9", "\x80"}};
    for (const auto& [key, value] : rows)
        EXPECT_EQ(KestGetEnvironmentVariable(key), value) << key;
    environment.setLocale("C.UTF-8");
    EXPECT_EQ(KestGetEnvironmentVariable("a\\b\\Caf\xC3\xA9"), "\xE2\x82\xAC");
    for (const std::string name : {"Binary", "Expanded"})
        EXPECT_EQ(kit::failureOf([&] { KestGetEnvironmentVariable("a\\b\\" + name); }),
                  "KestKeyDataNotSupportedException - KestUtilities::KestGetEnvironmentVariable:"
                  "                         key-value data type not supported");
    for (const char digit : std::string_view("0123456789")) {  // equal sizes, within a tick of the clock
        write("\"Text\"=\"" + std::string(1, digit) + "\"\n");
        EXPECT_EQ(KestGetEnvironmentVariable("a\\b\\Text"), std::string(1, digit));
    }
}

TEST_F(GetEnvironmentVariable, LogsAnUnusableRegistry) {
    const std::string file = write("\"Text\"=\"9\"\n");
    const kit::LogCapture log(1);
    const auto expectNone = [](const std::string& why) {
        EXPECT_EQ(KestGetEnvironmentVariable("a\\b\\Text"), "") << why;
    };
    for (const char* call : {"findRegistry", "openRegistry", "readRegistry"}) {
        const kit::FailingCalls calls(call, 1, true, EMFILE);
        expectNone(call);
    }
    for (const mode_t mode : {0620u, 0602u}) {
        ASSERT_EQ(chmod(file.c_str(), mode), 0);
        expectNone("writable by another user");
    }
    ASSERT_EQ(chmod(file.c_str(), 0644), 0);
    if (ChildProcess::isRoot()) {
        ASSERT_EQ(chown(file.c_str(), 65534, 0), 0);
        expectNone("owned by another user");
        ASSERT_EQ(chown(file.c_str(), 0, 0), 0);
    }
    EXPECT_EQ(KestGetEnvironmentVariable("a\\b\\Text"), "9");
    fs::remove(file);
    expectNone("no file");
    ASSERT_EQ(mkfifo(file.c_str(), 0600), 0);
    expectNone("a pipe");
    Texts expected;
    for (const char* code : {"4", "4", "4", "5", "5", "5", "13"})
        expected.push_back(std::string("KestGetEnvironmentVariable: Could not read the registry (") + code + ")");
    if (!ChildProcess::isRoot()) expected.erase(expected.begin() + 5);
    EXPECT_EQ(log.messages(), expected);
}

TEST(OSErrorMessage, IsTheTextOrTheNumber) {
    const std::pair<int, std::string> rows[] = {{5, std::strerror(EACCES)},
                                                {1060, "The service is not installed."},
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
    const std::set<std::string> both{search.next(), copy.next()};
    EXPECT_EQ(both, (std::set<std::string>{folder.pathOf("a.txt"), folder.pathOf("b.txt")}));
    EXPECT_FALSE(search.hasMore());
    EXPECT_EQ(search.next() + copy.next(), "");
    const fs::path before = fs::current_path();
    fs::current_path(folder.path());
    EXPECT_EQ(KestFindFile("?.doc").next(), "c.doc");
    fs::current_path(before);
    const kit::LogCapture log(1);
    for (const char* call : {"openDirectory", "readDirectory"}) {
        const kit::FailingCalls calls(call, 1, true, EMFILE);
        EXPECT_FALSE(KestFindFile(folder.pathOf("*")).hasMore());
    }
    EXPECT_FALSE(KestFindFile(folder.pathOf("none/*")).hasMore());
    EXPECT_EQ(log.messages(),
              Texts(2, "KestFindFile: Could not read the directory of " + folder.pathOf("*") + " (24)"));
}

}  // namespace
