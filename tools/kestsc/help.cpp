#include "help.h"

#include <utility>
#include <vector>

#include "command_line.h"
#include "support/program_options.h"
#include "table.h"

namespace kestsc {
namespace {

const char* const kIntroduction =
    "kestsc - manage the services of this machine\n"
    "\n"
    "usage: kestsc COMMAND [NAME] [OPTIONS]\n";

const char* const kExitCodes =
    "\nExit codes, with the status code that --json prints:\n"
    "  0  success                                       0\n"
    "  1  any other failure                            -1\n"
    "  2  the command line cannot be used\n"
    "  3  status: the service is stopped\n"
    "  4  the service is not installed                 -1\n"
    "  5  access denied                               270\n"
    "  6  timed out                                     3\n"
    "  7  services that depend on it run              305\n"
    "  8  not implemented on this platform              1\n"
    "\n"
    "kestsc COMMAND --help explains a command. On Linux the services are in\n"
    "$KEST_STATE_DIR; when that is unset, in /var/lib/kest for root and in\n"
    "$XDG_STATE_HOME/kest (~/.local/state/kest) for others. On Windows they are\n"
    "those of the system; logs, start-all, stop-all, run-all and --restart are not\n"
    "available there.\n";

std::string callOf(const CommandEntry& command) {
    const std::string arguments = command.arguments;
    return command.name + (arguments.empty() ? "" : " " + arguments);
}

// The options whose bits are set.
std::string optionTable(unsigned bits) {
    std::vector<KestSupport::KestOption> options;
    for (const OptionEntry& option : kOptions) {
        const char letter = *option.letter == '\0' ? '\0' : option.letter[1];
        if ((option.bit & bits) != 0) options.push_back({letter, option.name, option.value, option.summary});
    }
    return KestSupport::KestOptionTable(std::move(options)).usage();
}

}  // namespace

std::string generalHelp() {
    std::vector<Row> commands;
    std::vector<Row> examples;
    for (const CommandEntry& command : kCommands) {
        commands.push_back({"  " + callOf(command), command.summary});
        examples.push_back({std::string("  ") + command.example});
    }
    return std::string(kIntroduction) + "\nCommands:\n" + formatTable(commands) + "\nExamples:\n" +
           formatTable(examples) + "\nOptions:\n" + optionTable(~0U) + kExitCodes;
}

std::string commandHelp(const CommandEntry& command) {
    return "kestsc " + callOf(command) + " - " + command.summary + "\n\n" + command.explanation + "\nOptions:\n" +
           optionTable(command.options | kOptionJson | kOptionHelp) + "\nExample:\n  " + command.example + '\n';
}

std::string versionText() {
    return "kestsc " KESTSC_VERSION "\n";
}

}  // namespace kestsc
