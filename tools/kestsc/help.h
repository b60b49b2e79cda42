// The texts of --help and --version.
#pragma once

#include <string>

#include "commands.h"

namespace kestsc {

/// What kestsc does, with every command and an example for each, every option and every exit code.
std::string generalHelp();

/// One command: what it does, what it takes, an example.
std::string commandHelp(const CommandEntry& command);

std::string versionText();

}  // namespace kestsc
