// For a program that supervises others: it becomes the parent of the processes whose parents end before them, as the
// first process of the system is, and collects the results of ended ones.
//
// Threads: for a program of which no other thread waits for child processes during reapChildren.
#pragma once

#include <cstdint>
#include <vector>

namespace KestSupport::platform {

struct EndedProcess {
    std::uint32_t id;
    int exitCode;  ///< of the process; minus the number of the signal that ended it
};

/// From now on the descendants of this process that lose their parents become its children. Returns false on a system
/// that has no such relation.
bool adoptOrphans() noexcept;

/// Returns the children that have ended since the last call. The system forgets them. Does not wait.
std::vector<EndedProcess> reapChildren();

}  // namespace KestSupport::platform
