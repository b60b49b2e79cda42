// Paths and names of the system's own form: long ones, those of shares, and those that the ANSI code page lacks.
#include <filesystem>

#include "kit/temporary_folder.h"
#include "platform/windows/windows_api.h"
#include "support/utilities.h"

namespace {

namespace fs = std::filesystem;
using namespace KestSupport;

TEST(SystemPath, LiftsTheLimitOfLongPaths) {
    const kit::TemporaryFolder folder;
    const fs::path deep = folder.pathOf(std::string(120, 'd')), before = fs::current_path();
    const std::string longName(120, 'n');
    const std::wstring wideName(longName.begin(), longName.end());
    fs::create_directories(deep);
    fs::current_path(deep);
    EXPECT_EQ(platform::systemPath("n"), L"n");
    EXPECT_EQ(platform::systemPath(longName), L"\\\\?\\" + deep.native() + L'\\' + wideName);
    fs::current_path(before);
    const std::pair<std::string, std::wstring> rows[] = {{"C:/a/b//", L"\\\\?\\C:\\a\\b"},
                                                         {"C:\\", L"\\\\?\\C:\\"},
                                                         {"\\\\server\\share\\a\\", L"\\\\?\\UNC\\server\\share\\a"},
                                                         {"\\\\?\\C:\\a", L"\\\\?\\C:\\a"}};
    for (const auto& [path, expected] : rows)
        EXPECT_EQ(platform::folderPath(path), expected) << path;
}

TEST(TreeWalk, RemovesNamesThatTheCodePageLacks) {
    const kit::TemporaryFolder folder;
    const fs::path tree = folder.pathOf("tree");
    for (const wchar_t* name : {L"\u0416", L"\u0429\u0429", L"\u4E2D", L"\u0101", L"a"}) {
        fs::create_directories(tree / name / L"\u0434");
        std::ofstream(tree / (std::wstring(name) + L".txt")) << "text";
        std::ofstream(tree / name / L"\u0434" / L"\u044F") << "text";
    }
    KestRemoveDirectory(tree.string(), true);
    EXPECT_FALSE(fs::exists(tree));
}

}  // namespace
