// The command line of kestsc. The library's program options distinguish options and arguments by their form alone. Here
// the command decides which options exist, and arguments of the service, which may begin with a dash, follow "--".
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
    kOptionRestart = 2048,
    kOptionFollow = 4096,
    kOptionLines = 8192,
};

struct OptionEntry {
    unsigned bit;
    const char* name;
    const char* value;  ///< the placeholder of its value; empty for a switch
    const char* summary;
    const char* letter = "";  ///< its short form, for the commands that take it; empty for none
};

extern const std::vector<OptionEntry> kOptions;

struct CommandLine {
    const CommandEntry* command = nullptr;  ///< null only with help or version
    bool help = false;
    bool version = false;
    bool json = false;
    std::string service;
    std::vector<std::string> words;      ///< after the service's name
    std::vector<std::string> arguments;  ///< of the services to start
    bool follows = false;
    std::optional<std::uint32_t> lines;  ///< the most lines to show
    Patience patience;
    KestSupport::platform::ServiceChange change;
    std::optional<std::string> description;
};

/// Returns the services that a command for several names is for.
std::vector<std::string> servicesOf(const CommandLine& line);

/// Parses the words after the program's name. Throws UsageError. With help or version it checks only that the options
/// and the command exist.
CommandLine parseCommandLine(const std::vector<std::string>& words);

/// Returns the command line to register, from the words given for it. A single word is a complete command line with its
/// own quotes; several words are quoted here, and so is the path of an existing program file with blanks. A relative
/// path that has a separator becomes absolute, because services start in another folder. Throws UsageError, which names
/// the command of kestsc, when no program is given.
std::string registeredCommand(const std::vector<std::string>& words, const CommandEntry& command);

}  // namespace kestsc
