#include "system.h"

#include <filesystem>
#include <system_error>

namespace agent {

std::string programFolder() {
    std::error_code error;
    return std::filesystem::read_symlink("/proc/self/exe", error).parent_path().string();
}

// The words of a shell.
std::string quoted(const std::string& word) {
    std::string text = "'";
    for (const char each : word)
        text += each == '\'' ? "'\\''" : std::string(1, each);
    return text + "'";
}

}  // namespace agent
