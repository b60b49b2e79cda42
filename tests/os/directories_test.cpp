// Tests KestCreateDirectory and KestRemoveDirectory: results, texts, log records and failed system calls.

#include <cerrno>
#include <filesystem>

#include "kit/failing_calls.h"
#include "kit/failure_of.h"
#include "kit/log_capture.h"
#include "platform/files.h"
#include "support/utilities.h"

namespace {

using namespace KestSupport;
namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

std::string removalFailure(const std::string& path, bool recursive = true) {
    return kit::failureOf([&] { KestRemoveDirectory(path, recursive); });
}

const std::string kNoDirectory = "KestRemoveDirectory: Could not remove the directory ";
const std::string kSeparator(1, platform::kNameSeparator);
const std::string kNoFile = "KestRemoveDirectory: Could not remove the file ";

TEST(CreateDirectory, CreatesMissingParents) {
    const kit::TemporaryFolder folder;
    folder.write("file", "");
    const std::tuple<const char*, bool, const char*> rows[] = {{"a", true, "a"},
                                                               {"a", true, "a"},
                                                               {"a/b/c", true, "a/b/c"},
                                                               {"d//e/", true, "d/e"},
                                                               {"f\\g/h\\i", true, "f/g/h/i"},
                                                               {"file", true, "file"},
                                                               {"file/x", false, "file"}};
    for (const auto& [path, result, created] : rows) {
        EXPECT_EQ(KestCreateDirectory(folder.pathOf(path)), result) << path;
        EXPECT_TRUE(fs::exists(folder.pathOf(created))) << path;
    }
    EXPECT_FALSE(KestCreateDirectory(""));
    const fs::path before = fs::current_path();
    fs::current_path(folder.path());
    const kit::LogCapture log;
    const kit::FailingCalls calls("makeDirectory", 3, true, EACCES);
    EXPECT_FALSE(KestCreateDirectory("j\\k/l"));
    fs::current_path(before);
    EXPECT_EQ(log.messages(), (Texts{"KestCreateDirectory: j\\k/l", "KestCreateDirectory: couldn't create j/k (13)"}));
}

TEST(RemoveDirectory, RemovesWholeTrees) {
    const kit::TemporaryFolder folder;
    const std::string tree = folder.pathOf("tree");
    const std::string none = folder.pathOf("none");
    fs::create_directories(tree + "/a/b/c");
    for (const char* name : {"tree/.dot", "tree/a/b/c/e", "tree/a/b/d"})
        folder.write(name, "x");
    EXPECT_EQ(removalFailure(tree, false), kNoDirectory + tree + ": " + std::to_string(ENOTEMPTY));
    EXPECT_EQ(removalFailure(tree), "no failure");
    EXPECT_FALSE(fs::exists(tree));
    EXPECT_EQ(removalFailure(none), kNoDirectory + none + ": 2");
    fs::create_directories(folder.pathOf("outside/kept"));
    EXPECT_EQ(removalFailure(folder.pathOf("outside\\kept"), false), "no failure");
    EXPECT_TRUE(fs::exists(folder.pathOf("outside")));
}

TEST(RemoveDirectory, KeepsDotFolders) {
    const kit::TemporaryFolder folder;
    const std::string tree = folder.pathOf("tree");
    const std::string below = tree + kSeparator + "a";
    fs::create_directories(below + "/.kept/b");
    folder.write("tree/a/file", "");
    {
        const kit::LogCapture log;
        EXPECT_EQ(removalFailure(tree), kNoDirectory + below);
        const std::string removing = "KestRemoveDirectory: Remove directoryImpl ";
        EXPECT_EQ(log.messages(), (Texts{removing + tree, removing + below,
                                         "KestRemoveDirectory: Delete file " + below + kSeparator + "file"}));
    }
    std::string text = "before";
    int code = 77;
    EXPECT_FALSE(KestRemoveDirectoryImpl(below, true, text, code));
    EXPECT_EQ(text, kNoDirectory + below);
    EXPECT_EQ(code, 77) << "set by the first attempt only";
    EXPECT_TRUE(fs::exists(below + "/.kept/b"));
}

TEST(RemoveDirectory, ReportsFailedSystemCalls) {
    const kit::TemporaryFolder folder;
    const std::string tree = folder.pathOf("tree"), below = tree + kSeparator + "d";
    const std::tuple<const char*, int, std::string> rows[] = {{"removeDirectory", 1, kNoDirectory + tree + ": 5"},
                                                              {"openDirectory", 2, kNoDirectory + tree},
                                                              {"removeEntry", 1, kNoDirectory + below + ": 5"},
                                                              {"removeEntry", 2, kNoFile + below + kSeparator + "file"},
                                                              {"openDirectory", 1, "no failure"}};
    const kit::LogCapture log(1);
    for (const auto& [step, first, failure] : rows) {
        fs::create_directories(below);
        folder.write("tree/d/file", "");
        const kit::FailingCalls calls(step, first, true, EIO);
        EXPECT_EQ(removalFailure(tree), failure) << step << first;
        EXPECT_TRUE(fs::exists(tree)) << step << first;
    }
    EXPECT_EQ(log.messages(), Texts{"KestRemoveDirectory: Could not read the directory " + tree + " (5)"});
}

}  // namespace
