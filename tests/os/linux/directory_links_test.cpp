// Tests that KestRemoveDirectory follows no links, and removes many entries and any depth.
#include <sys/stat.h>
#include <unistd.h>

#include "kit/temporary_folder.h"
#include "support/utilities.h"

namespace {

using namespace KestSupport;
namespace fs = std::filesystem;

// Returns "TEXT: CODE" of the failure, or an empty text.
std::string removalFailure(const std::string& path) {
    std::string text;
    int code = 0;
    return KestRemoveDirectoryImpl(path, true, text, code) ? "" : text + ": " + std::to_string(code);
}

const std::string kNoDirectory = "KestRemoveDirectory: Could not remove the directory ";

TEST(RemoveDirectory, FollowsNoLinks) {
    const kit::TemporaryFolder folder;
    const std::string tree = folder.pathOf("tree");
    const std::string root = folder.pathOf("root");
    fs::create_directories(tree + "/a/b/c");
    fs::create_directories(folder.pathOf("outside/kept"));
    for (const char* name : {"tree/\x01\n\\\xFF", "tree/.dot", "tree/a/b/c/*", "outside/file"})
        folder.write(name, "x");
    fs::create_directory_symlink(folder.pathOf("outside"), tree + "/a/link");
    fs::create_directory_symlink("outside", root);
    ASSERT_EQ(mkfifo((tree + "/pipe").c_str(), 0600), 0);
    EXPECT_EQ(removalFailure(tree), "");
    EXPECT_FALSE(fs::exists(tree));
    EXPECT_EQ(removalFailure(root), kNoDirectory + root + ": 20");
    EXPECT_EQ(removalFailure(root + "/"), kNoDirectory + root + "/: 20");
    EXPECT_TRUE(fs::exists(folder.pathOf("outside/file")));
}

TEST(RemoveDirectory, HandlesManyEntriesAndDeepTrees) {
    const kit::TemporaryFolder folder;
    constexpr int kEntries = 20'000;
    constexpr int kDepth = 2000;  // with the long names the path exceeds PATH_MAX
    const std::string tree = folder.pathOf("tree");
    const std::string name(40, 'd');
    fs::create_directory(tree);
    for (int i = 0; i < kEntries; ++i)
        ASSERT_EQ(symlink("x", (tree + '/' + std::to_string(i)).c_str()), 0);
    const fs::path before = fs::current_path();
    fs::current_path(tree);
    for (int depth = 0; depth < kDepth; ++depth)
        ASSERT_EQ(mkdir(name.c_str(), 0700) + mkdir("e", 0700) + symlink("x", "f") + chdir(name.c_str()), 0);
    fs::current_path(before);
    EXPECT_EQ(removalFailure(tree), "");
    EXPECT_FALSE(fs::exists(tree));
}

}  // namespace
