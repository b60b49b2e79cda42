// Paths and names of the system's own form: long ones, those of shares, and those that the ANSI code page lacks. How
// programs and documents are shown.

#include <filesystem>

#include "kit/child_process.h"
#include "kit/failure_of.h"
#include "kit/log_capture.h"
#include "kit/temporary_folder.h"
#include "platform/process.h"
#include "platform/windows/windows_api.h"
#include "support/program_run.h"
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
    std::ofstream("n.exe") << "a program";
    EXPECT_TRUE(platform::isProgramFile((deep / "n").string()));
    EXPECT_FALSE(platform::isProgramFile(deep.root_name().string() + "n"));
    EXPECT_EQ(platform::systemPath("n"), L"n");
    EXPECT_EQ(platform::lastingPath("n"), (deep / "n").native());
    EXPECT_EQ(platform::systemPath(longName), L"\\\\?\\" + deep.native() + L'\\' + wideName);
    fs::current_path(before);
    const std::pair<std::string, std::wstring> rows[] = {{"C:/a/b//", L"\\\\?\\C:\\a\\b"},
                                                         {"C:\\", L"\\\\?\\C:\\"},
                                                         {"\\\\?\\C:\\", L"\\\\?\\C:\\"},
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
    const fs::path kept = folder.write("read-only", "");
    fs::permissions(kept, fs::perms::owner_read);
    EXPECT_EQ(kit::failureOf([&] { KestRemoveDirectory(folder.path(), true); }),
              "KestRemoveDirectory: Could not remove the file " + folder.path() + "\\read-only");
    fs::permissions(kept, fs::perms::owner_all);
    for (const auto& [error, errnoValue] : {std::pair(ERROR_SHARING_VIOLATION, EACCES), {ERROR_NO_DATA, EPIPE}})
        EXPECT_EQ(platform::errnoFromError(error), errnoValue);
}

// Returns whether the system has asked it to show its window, and has given it a console of its own.
const kit::ChildRole g_shown("shown", [](const std::vector<std::string>&) {
    STARTUPINFOW startup;
    GetStartupInfoW(&startup);
    DWORD process = 0;
    return static_cast<int>(startup.dwFlags) + startup.wShowWindow +
           (GetConsoleProcessList(&process, 1) == 1 ? 1000 : 0);
});

TEST(ExecuteProgram, ShowsWindowsAndOpensDocuments) {
    const kit::TemporaryFolder folder;
    const std::string document = folder.write("a document.kest", "");
    const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    SetStdHandle(STD_INPUT_HANDLE, reinterpret_cast<HANDLE>(std::intptr_t{0x7FFC}));  // as if it were closed
    for (const auto& [level, expected] : {std::pair{5, 0x101 + 1 + 1000}, {6, 0x101 + 1}}) {
        const kit::LogCapture log(level);
        int shown = 0;
        EXPECT_TRUE(KestExecuteProgram(kit::ChildProcess::commandOfRole("shown"), true, nullptr, &shown));
        EXPECT_EQ(shown, expected) << level;
    }
    SetStdHandle(STD_INPUT_HANDLE, input);
    const std::string names = (fs::temp_directory_path() / ".kest-").string() + std::to_string(GetCurrentProcessId());
    for (const char number : std::string("01234"))
        std::ofstream(names + "-" + number) << "of another process";
    EXPECT_EQ(KestRunProgram({.arguments = platform::splitArguments(kit::ChildProcess::commandOfRole("shown"))}).errors,
              "");
    for (const char number : std::string("01234"))
        EXPECT_TRUE(fs::remove(names + "-" + number));
    const kit::LogCapture log(1);
    for (const std::string& command : {document, '"' + document + '"'})
        EXPECT_TRUE(KestExecuteProgram(command, true, nullptr, nullptr));
    EXPECT_EQ(log.messages().at(1), log.messages().at(3)) << "quotes are not necessary";
}

}  // namespace
