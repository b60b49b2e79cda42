// Names for files that are created beside others.
#pragma once

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <string>

namespace KestSupport::platform {

/// Returns a name that this process has not used.
inline std::string newFileName(std::uint32_t processId) {
    static constinit std::atomic<unsigned> number{0};
    return ".kest-" + std::to_string(processId) + "-" + std::to_string(number++);
}

/// Calls `create` with new paths until it returns true, or fails with another errno value than EEXIST. The folder is
/// empty or ends with a separator. Returns the path; an empty one if it failed.
template <typename Path, typename Create>
Path createWithNewName(const Path& folder, std::uint32_t processId, const Create& create) {
    constexpr int kMostTries = 1000;  // against files that killed processes have left
    for (int i = 0; i < kMostTries; ++i) {
        const std::string name = newFileName(processId);
        Path path = folder;
        path.append(name.begin(), name.end());
        if (create(path)) return path;
        if (errno != EEXIST) break;
    }
    return {};
}

}  // namespace KestSupport::platform
