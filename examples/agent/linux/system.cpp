#include "system.h"

#include <filesystem>
#include <system_error>

namespace agent {

std::string programFolder() {
    std::error_code error;
    return std::filesystem::read_symlink("/proc/self/exe", error).parent_path().string();
}

}  // namespace agent
