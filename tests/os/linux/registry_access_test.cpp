// Tests which registry files KestGetEnvironmentVariable refuses, and by which character set it reads names.
#include <sys/stat.h>
#include <unistd.h>

#include <sys/inotify.h>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>

#include "kit/child_process.h"
#include "kit/environment_guard.h"
#include "kit/failing_calls.h"
#include "kit/gate.h"
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
    const bool mayGive = ChildProcess::isRoot() && chown(file.c_str(), 65534, 0) == 0;  // a container may forbid it
    if (mayGive) {
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
    if (!mayGive) expected.erase(expected.begin() + 5);
    EXPECT_EQ(log.messages(), expected);
}

TEST(GetEnvironmentVariable, NoticesChangesOfAWatchedFile) {
    const auto textOf = [](const std::string& value) {
        return "Windows Registry Editor Version 5.00\n\n[HKLM\\a]\n\"Text\"=\"" + value + "\"\n";
    };
    const auto value = [] { return KestGetEnvironmentVariable("a\\Text"); };
    const auto mayWatch = [] {  // a user has few of these descriptors for all programs
        const int descriptor = inotify_init1(IN_CLOEXEC);
        return descriptor >= 0 && close(descriptor) == 0;
    };
    const kit::TemporaryFolder folder;
    using Change = std::function<void(const fs::path& state)>;
    const auto writeNew = [&](const fs::path& file) { std::ofstream(file) << textOf("new"); };
    const std::pair<Change, std::string> rows[] = {
        {[&](const fs::path& state) { writeNew(state / "registry.reg"); }, "new"},
        {[&](const fs::path& state) {
             writeNew(state / "other");
             fs::rename(state / "other", state / "registry.reg");
         },
         "new"},
        {[&](const fs::path& state) {
             fs::rename(state, state.string() + ".old");
             fs::create_directory(state);
             writeNew(state / "registry.reg");
         },
         "new"},
        {[](const fs::path& state) { fs::permissions(state / "registry.reg", fs::perms::all); }, ""},
        {[](const fs::path& state) { fs::remove(state / "registry.reg"); }, ""}};
    const auto stateOf = [&](std::size_t row) { return fs::path(folder.path()) / std::to_string(row); };
    for (std::size_t row = 0; row < std::size(rows); ++row) {
        fs::create_directory(stateOf(row));
        std::ofstream(stateOf(row) / "registry.reg") << textOf("old");
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(150));  // a younger file is read by each call
    kit::EnvironmentGuard environment;
    for (std::size_t row = 0; row < std::size(rows); ++row) {
        environment.set("KEST_STATE_DIR", stateOf(row).string());
        // At last without a look at the file. A watch lasts a second, so a busy machine may need several attempts.
        kit::await([&] {
            for (int times = 0; times < 70; ++times)
                EXPECT_EQ(value(), "old");
            const kit::FailingCalls calls("findRegistry", 1, true, EMFILE);
            return value() == "old" || !mayWatch();
        });
        rows[row].first(stateOf(row));
        EXPECT_EQ(value(), rows[row].second) << row;
    }
}

TEST(GetEnvironmentVariable, UsesTheCharacterSetOfTheEnvironment) {
    kit::EnvironmentGuard environment;
    kit::Registry registry;
    registry.setText("a", "Caf\u00E9", "\u20AC");
    environment.setLocale("C.UTF-8");
    EXPECT_EQ(KestGetEnvironmentVariable("a\\Caf\u00E9"), "\u20AC");
}

}  // namespace
