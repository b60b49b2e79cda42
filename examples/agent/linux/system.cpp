#include "system.h"

#include <system_error>

namespace agent {

std::string programFolder() {
    std::error_code error;
    return std::filesystem::read_symlink("/proc/self/exe", error).parent_path().string();
}

std::filesystem::path pathOf(const std::string& text) {
    return text;
}

std::string textOf(const std::filesystem::path& path) {
    return path.string();
}

}  // namespace agent
