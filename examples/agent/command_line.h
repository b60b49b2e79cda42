// The agent's command line.
#pragma once

#include <optional>
#include <string>

namespace agent {

/// What the user asked for; what is absent is left to the settings.
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

/// Throws BadInput for an option that there is not, one without its value, and an argument that is no option.
CommandLine parseCommandLine(int argc, char** argv);

/// The text of --help.
std::string usage();

}  // namespace agent
