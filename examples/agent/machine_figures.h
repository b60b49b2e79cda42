// What the watchers watch: this machine's figures at one moment; and what machine it is.
#pragma once

#include <optional>
#include <string>

namespace agent {

/// Each figure is absent when the system does not tell it.
struct MachineFigures {
    static std::optional<double> loadAverage();        ///< of the last minute
    static std::optional<double> memoryUsedPercent();  ///< what programs could not get any more, of all
    static std::optional<double> processCount();
    /// Of the file system that the path lies on.
    static std::optional<double> diskUsedPercent(const std::string& path);

    static std::optional<double> memoryMebibytes();
    static unsigned int processors();  ///< 0 when the system does not tell
    /// Empty when the system does not tell it.
    static std::string hostName();
    static std::string kernel();
};

}  // namespace agent
