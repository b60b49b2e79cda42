#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <vector>

#include "platform/linux/linux_call.h"
#include "platform/state_directory.h"

namespace KestSupport::platform {
namespace {

constexpr mode_t kOwnerOnly = 0700;

std::string variable(const char* name) {
    const char* const value = std::getenv(name);
    return value == nullptr ? std::string() : value;
}

std::string homeDirectory() {
    std::string home = variable("HOME");
    if (!home.empty()) return home;
    std::vector<char> buffer(16384);  // the C library asks for less
    passwd entry{};
    passwd* found = nullptr;
    const int error =
        errorCall("homeDirectory", [&] { return getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found); });
    return error != 0 || found == nullptr ? std::string() : found->pw_dir;
}

int makeFolder(const std::string& path) noexcept {
    const int result = systemCall("makeDirectory", [&] { return ::mkdir(path.c_str(), kOwnerOnly); });
    return result == 0 || errno == EEXIST ? 0 : errno;
}

bool isFolder(const std::string& path) noexcept {
    struct stat status {};
    return systemCall("isDirectory", [&] { return ::stat(path.c_str(), &status); }) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

ErrorCode stateDirectory(std::string& path) {
    const char* const named = std::getenv("KEST_STATE_DIR");
    if (named != nullptr && *named != '\0') {
        path = named;
        return errorSuccess;
    }
    if (geteuid() == 0) {
        path = "/var/lib/kest";
        return errorSuccess;
    }
    std::string base = variable("XDG_STATE_HOME");
    // The rules of these variables say that a relative path is ignored.
    if (!base.starts_with('/')) {
        base = homeDirectory();
        if (base.empty()) return errorPathNotFound;
        base += "/.local/state";
    }
    path = base + "/kest";
    return errorSuccess;
}

ErrorCode createStateDirectory(std::string& path) {
    if (const ErrorCode error = stateDirectory(path); error != 0) return error;
    std::error_code unresolved;
    path = std::filesystem::absolute(path, unresolved).string();
    if (unresolved) return errorFromErrno(unresolved.value());
    if (isFolder(path)) return errorSuccess;
    int error = 0;
    for (std::size_t end = path.find('/', 1); error == 0 && end != std::string::npos; end = path.find('/', end + 1)) {
        const std::string parent = path.substr(0, end);
        if (!isFolder(parent)) error = makeFolder(parent);
    }
    if (error == 0) error = makeFolder(path);
    if (error == 0 && !isFolder(path)) error = ENOTDIR;
    return errorFromErrno(error);
}

}  // namespace KestSupport::platform
