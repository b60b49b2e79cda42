// The agent's settings: defaults, then a property file, then the command line.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "command_line.h"

namespace agent {

struct Settings {
    int interval = 5;  ///< seconds from one sample to the next
    int samples = 0;   ///< 0: until a request to end

    double cpuLimit = 8;         ///< load average of the last minute
    double memoryLimit = 90;     ///< per cent in use
    double diskLimit = 90;       ///< per cent in use, of each file system
    double processLimit = 2000;  ///< processes
    std::vector<std::string> diskPaths{"/"};
    std::string hostName;  ///< what the patterns for hosts are matched with; default: the machine's name

    std::string secret;    ///< deciphered; empty: the state file has no seal
    std::string language;  ///< a locale's name; empty: the environment's

    std::string stateFile = "kest-agent.state";
    std::string logFile;  ///< empty: standard output only
    bool logToConsole = false;
    int logSize = 10240;  ///< KiB, at which the log file is rotated; 0: never
    bool logDaily = false;
    int logKeep = 5;  ///< old log files
    int logLevel = 3;
    std::map<std::string, int> moduleLevels;  ///< by watcher: Cpu, Memory, Disk, Process
};

/// The agent's version, which a settings file may require.
extern const char* const kVersion;

/// Throws BadInput for a file that cannot be read or is for another version, an unknown setting, a setting that is
/// given twice, a wrong value, and a secret that cannot be deciphered.
Settings loadSettings(const CommandLine& commandLine);

}  // namespace agent
