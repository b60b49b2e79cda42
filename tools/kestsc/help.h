// The texts of --help and --version.
#pragma once

#include <string>

#include "commands.h"

namespace kestsc {

/// Returns the help of kestsc: each command with an example, the options and the exit codes.
std::string generalHelp();

/// Returns the help of one command: what it does, its options, an example.
std::string commandHelp(const CommandEntry& command);

std::string versionText();

}  // namespace kestsc
