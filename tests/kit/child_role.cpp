#include <chrono>
#include <filesystem>
#include <map>
#include <string_view>
#include <thread>

#include "kit/child_process.h"
#include "platform/process.h"
#include "platform/program_path.h"

namespace kit {
namespace {

constexpr std::string_view kFolderOption = "--child-folder=";
constexpr std::string_view kRoleOption = "--child-role=";

// Found before the tests, which make calls of the system fail.
const std::string g_thisProgram = *KestSupport::platform::programPath();

std::map<std::string, ChildRole::Main>& roles() {
    static std::map<std::string, ChildRole::Main> all;
    return all;
}

}  // namespace

ChildProcess::ChildProcess(const std::string& program, const std::vector<std::string>& arguments)
    : ChildProcess(program, arguments, Options{}) {}

ChildProcess ChildProcess::inRole(const std::string& role, const std::vector<std::string>& arguments) {
    return inRole(role, arguments, {});
}

ChildProcess ChildProcess::inRole(const std::string& role, const std::vector<std::string>& arguments,
                                  const Options& options) {
    std::vector<std::string> all{std::string(kRoleOption) + role};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return ChildProcess(g_thisProgram, all, options);
}

std::string ChildProcess::commandOfRole(const std::string& role, const std::string& folder) {
    return KestSupport::platform::quoteArgument(g_thisProgram) + " " + argumentsOfRole(role, folder);
}

std::string ChildProcess::argumentsOfRole(const std::string& role, const std::string& folder) {
    const std::string option = std::string(kFolderOption) + folder;
    return (folder.empty() ? "" : KestSupport::platform::quoteArgument(option) + " ") + std::string(kRoleOption) + role;
}

ChildRole::ChildRole(const char* name, Main main) {
    roles()[name] = main;
}

bool ChildRole::run(int argc, char** argv, int& exitCode) {
    if (argc > 2 && std::string_view(argv[1]).starts_with(kFolderOption)) {
        std::filesystem::current_path(argv[1] + kFolderOption.size());
        --argc;
        ++argv;
    }
    if (argc < 2) return false;
    const std::string_view first = argv[1];
    if (!first.starts_with(kRoleOption)) return false;
    // ThreadSanitizer loses a signal that arrives while a thread makes its first call that may block. This
    // is such a call, before another process can send one.
    std::this_thread::sleep_for(std::chrono::nanoseconds(1));
    exitCode = roles().at(std::string(first.substr(kRoleOption.size())))({argv + 2, argv + argc});
    return true;
}

}  // namespace kit
