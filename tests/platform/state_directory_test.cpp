#include "platform/state_directory.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "kit/environment_guard.h"
#include "kit/failing_calls.h"
#include "kit/temporary_folder.h"

namespace {

using namespace KestSupport::platform;
namespace fs = std::filesystem;

TEST(StateDirectory, IsNamedByTheEnvironmentOrBelongsToTheUser) {
    kit::EnvironmentGuard environment;
    const bool root = geteuid() == 0;
    const struct {
        const char *named, *base, *home, *path;
    } rows[] = {{"/named", "/base", "/home", "/named"},
                {"", "/base", "/home", root ? "/var/lib/kest" : "/base/kest"},
                {"", "relative", "/home", root ? "/var/lib/kest" : "/home/.local/state/kest"}};
    for (const auto& row : rows) {
        environment.set("KEST_STATE_DIR", row.named);
        environment.set("XDG_STATE_HOME", row.base);
        environment.set("HOME", row.home);
        std::string path;
        EXPECT_EQ(stateDirectory(path), 0u);
        EXPECT_EQ(path, row.path);
    }
}

TEST(StateDirectory, IsMadeForItsOwnerAloneAndLeftAsItIs) {
    const kit::TemporaryFolder folder;
    kit::EnvironmentGuard environment;
    environment.set("KEST_STATE_DIR", folder.pathOf("a/b"));
    for (int failing = 1; failing <= 3; ++failing) {
        const kit::FailingCalls calls("mkdir", failing, true, EACCES);
        std::string path;
        EXPECT_EQ(createStateDirectory(path), failing <= 2 ? errorAccessDenied : errorSuccess) << failing;
    }
    EXPECT_EQ(fs::status(folder.pathOf("a/b")).permissions(), fs::perms::owner_all);
    fs::permissions(folder.pathOf("a/b"), fs::perms::owner_all | fs::perms::group_read);
    std::string path;
    EXPECT_EQ(createStateDirectory(path), 0u);
    EXPECT_EQ(path, folder.pathOf("a/b"));
    EXPECT_EQ(fs::status(path).permissions(), fs::perms::owner_all | fs::perms::group_read);
    environment.set("KEST_STATE_DIR", folder.write("file", ""));
    EXPECT_EQ(createStateDirectory(path), errorPathNotFound);
}

}  // namespace
