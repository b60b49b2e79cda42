// The state directory: its path from the environment, and its creation.
#include "platform/state_directory.h"

#include <unistd.h>

#include <filesystem>

#include "kit/environment_guard.h"
#include "kit/failing_calls.h"
#include "kit/temporary_folder.h"

namespace {

using namespace KestSupport::platform;

TEST(StateDirectory, FollowsTheEnvironment) {
    kit::EnvironmentGuard environment;
    std::string path;
    environment.set("HOME", "/home");
    const bool root = geteuid() == 0;
    const std::string rows[][3] = {{"/named", "/base", "/named"},
                                   {"", "/base", root ? "/var/lib/kest" : "/base/kest"},
                                   {"", "relative", root ? "/var/lib/kest" : "/home/.local/state/kest"}};
    for (const auto& row : rows) {
        environment.set("KEST_STATE_DIR", row[0]);
        environment.set("XDG_STATE_HOME", row[1]);
        EXPECT_EQ(stateDirectory(path), 0u);
        EXPECT_EQ(path, row[2]);
    }
    const kit::TemporaryFolder folder;
    environment.set("KEST_STATE_DIR", folder.pathOf("a/b"));
    for (int failing = 1; failing <= 3; ++failing) {
        const kit::FailingCalls calls("makeDirectory", failing, true, EACCES);
        EXPECT_EQ(createStateDirectory(path), failing <= 2 ? errorAccessDenied : errorSuccess) << failing;
    }
    EXPECT_EQ(path, folder.pathOf("a/b"));
    EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms::owner_all);
    environment.set("KEST_STATE_DIR", folder.write("file", ""));
    EXPECT_EQ(createStateDirectory(path), errorPathNotFound);
    environment.set("KEST_STATE_DIR", ".");
    EXPECT_EQ(createStateDirectory(path), errorSuccess);
    EXPECT_EQ(path, std::filesystem::current_path() / ".");
}

}  // namespace
