#include <map>
#include <string_view>

#include "kit/child_process.h"

namespace kit {
namespace {

constexpr std::string_view kRoleOption = "--child-role=";

std::map<std::string, ChildRole::Main>& roles() {
    static std::map<std::string, ChildRole::Main> all;
    return all;
}

}  // namespace

ChildRole::ChildRole(const char* name, Main main) {
    roles()[name] = main;
}

bool ChildRole::run(int argc, char** argv, int& exitCode) {
    if (argc < 2) return false;
    const std::string_view first = argv[1];
    if (!first.starts_with(kRoleOption)) return false;
    exitCode = roles().at(std::string(first.substr(kRoleOption.size())))({argv + 2, argv + argc});
    return true;
}

}  // namespace kit
