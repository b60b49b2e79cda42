// The agent's command line.
#pragma once

#include <optional>
#include <string>

namespace agent {

/// The given options. For an absent option the settings decide.
struct CommandLine {
    bool help = false;
    bool version = false;
    bool console = false;
    bool inventory = false;
    bool install = false;
    bool remove = false;
    bool service = false;
    std::optional<std::string> encipherKey;  ///< the file with the key
    std::optional<std::string> settingsFile;
    std::optional<std::string> samples;
    std::optional<std::string> interval;
    std::optional<std::string> logLevel;
};

/// Throws BadInput for an unknown option, an option without its value, and an argument that is not an option.
CommandLine parseCommandLine(int argc, char** argv);

/// Returns the text of --help.
std::string usage();

}  // namespace agent
