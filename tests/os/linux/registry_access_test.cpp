// Tests which registry files KestGetEnvironmentVariable refuses, and by which character set it reads names.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "kit/child_process.h"
#include "kit/environment_guard.h"
#include "kit/failing_calls.h"
#include "kit/log_capture.h"
#include "kit/registry.h"
#include "support/utilities.h"

namespace {

using namespace KestSupport;
using kit::ChildProcess;
using Texts = std::vector<std::string>;
namespace fs = std::filesystem;

TEST(GetEnvironmentVariable, LogsAnUnusableRegistry) {
    const kit::TemporaryFolder folder;
    const std::string file =
        folder.write("registry.reg", "Windows Registry Editor Version 5.00\n\n[HKLM\\a\\b]\n\"Text\"=\"9\"\n");
    kit::EnvironmentGuard environment;
    environment.set("KEST_STATE_DIR", folder.path());
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

TEST(GetEnvironmentVariable, UsesTheCharacterSetOfTheEnvironment) {
    kit::EnvironmentGuard environment;
    kit::Registry registry;
    registry.setText("a", "Caf\u00E9", "\u20AC");
    environment.setLocale("C.UTF-8");
    EXPECT_EQ(KestGetEnvironmentVariable("a\\Caf\u00E9"), "\u20AC");
}

}  // namespace
