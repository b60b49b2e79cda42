// The command line of kestsc. The library's program options serve programs whose options and arguments are told apart
// by their looks alone; here a command decides which options there are, and arguments of a service's own, dashes and
// all, stand behind "--".
#pragma once

#include <string>
#include <vector>

#include "commands.h"
#include "platform/service_manager.h"
#include "wait.h"

namespace kestsc {

/// Which options a command takes; every command takes help, version and json.
enum OptionBit : unsigned {
    kOptionHelp = 1,
    kOptionVersion = 2,
    kOptionJson = 4,
    kOptionTimeout = 8,
    kOptionNoWait = 16,
    kOptionDisplay = 32,
    kOptionDescription = 64,
    kOptionStart = 128,
    kOptionDepends = 256,
    kOptionCommand = 512,
    kOptionForce = 1024,
};

struct OptionEntry {
    unsigned bit;
    const char* name;
    const char* value;  ///< what it takes; empty for a switch
    const char* summary;
};

extern const std::vector<OptionEntry> kOptions;

struct CommandLine {
    const CommandEntry* command = nullptr;  ///< null: none, which only help and version can do without
    bool help = false;
    bool version = false;
    bool json = false;
    std::string service;
    std::vector<std::string> words;  ///< behind the service's name
    Patience patience;
    KestSupport::platform::ServiceChange change;
    std::optional<std::string> description;
};

/// Takes the words behind the program's name. Throws UsageError. With help or version nothing else is checked but that
/// options and command exist.
CommandLine parseCommandLine(const std::vector<std::string>& words);

/// The command line that is registered for a service, from the words given for it. A single word is a command line
/// already, with the quotes that it needs; a program's path with blanks gets them here, when it is a file's. The path
/// of a program that is looked for from here is made absolute, since services are started from elsewhere. Throws
/// UsageError, which names the command of kestsc, when there is no program.
std::string registeredCommand(const std::vector<std::string>& words, const CommandEntry& command);

}  // namespace kestsc
