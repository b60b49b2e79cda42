// Reads the watched figures of this machine, and its description.
#pragma once

#include <optional>
#include <string>

namespace agent {

/// A figure is absent when the system does not report it.
struct MachineFigures {
    static bool hasLoadAverage();                      ///< whether this system has one at all
    static std::optional<double> loadAverage();        ///< of the last minute
    static std::optional<double> memoryUsedPercent();  ///< the part of the memory that is not available to programs
    static std::optional<double> processCount();
    /// For the file system of the path.
    static std::optional<double> diskUsedPercent(const std::string& path);

    static std::optional<double> memoryMebibytes();
    static unsigned int processors();  ///< 0 when the system does not report it
    /// These are empty when the system does not report them.
    static std::string hostName();
    static std::string kernel();
};

}  // namespace agent
