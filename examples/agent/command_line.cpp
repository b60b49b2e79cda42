#include "command_line.h"

#include <support/exceptions.h>
#include <support/program_options.h>

#include <utility>
#include <vector>

#include "bad_input.h"
#include "messages.h"

namespace agent {
namespace {

using KestSupport::KestException;
using KestSupport::KestGnuOptions;
using KestSupport::KestOptionTable;
using KestSupport::KestProgramOptions;

KestOptionTable optionTable() {
    static constexpr struct {
        char letter;
        const char* name;
        const char* data;
        const char* meaning;
    } kOptions[] = {
        {'s', "settings", "FILE", "help.settings"},
        {'n', "samples", "N", "help.samples"},
        {'i', "interval", "SECONDS", "help.interval"},
        {'l', "log-level", "N", "help.logLevel"},
        {'c', "console", "", "help.console"},
        {'I', "inventory", "", "help.inventory"},
        {'\0', "encipher", "KEYFILE", "help.encipher"},
        {'\0', "install", "", "help.install"},
        {'\0', "remove", "", "help.remove"},
        {'\0', "service", "", "help.service"},
        {'v', "version", "", "help.version"},
        {'h', "help", "", "help.help"},
    };
    std::vector<KestSupport::KestOption> options;
    for (const auto& [letter, name, data, meaning] : kOptions)
        options.push_back({letter, name, data, say(meaning)});
    return KestOptionTable(std::move(options));
}

KestProgramOptions parse(int argc, char** argv) {
    const KestOptionTable table = optionTable();
    try {
        return KestProgramOptions(argc, argv, table.shortSpec(), table.longSpec(), KestGnuOptions());
    } catch (const KestException& refused) {
        const std::string text = refused.getText();
        const std::size_t reason = text.find(": ");
        throw BadInput(say("error.commandLine"),
                       say("error.hint", {printable(text.substr(reason == std::string::npos ? 0 : reason + 2))}));
    }
}

std::optional<std::string> valueOf(const KestProgramOptions& options, const std::string& letter,
                                   const std::string& name) {
    for (const std::string& given : {name, letter}) {
        if (options.isSet(given)) return options.getSwitch(given);
    }
    return std::nullopt;
}

}  // namespace

std::string usage() {
    return say("help.purpose") + "\n\n" + optionTable().usage(KestGnuOptions()) + "\n" + say("help.end") + "\n";
}

CommandLine parseCommandLine(int argc, char** argv) {
    const KestProgramOptions options = parse(argc, argv);
    if (options.getArgumentCount() > 0) {
        throw BadInput(say("error.commandLine"), say("error.argument", {printable(options.getArgument(0u))}));
    }
    CommandLine line;
    line.help = valueOf(options, "h", "help").has_value();
    line.version = valueOf(options, "v", "version").has_value();
    line.console = valueOf(options, "c", "console").has_value();
    line.inventory = valueOf(options, "I", "inventory").has_value();
    line.install = valueOf(options, "", "install").has_value();
    line.remove = valueOf(options, "", "remove").has_value();
    line.service = valueOf(options, "", "service").has_value();
    line.encipherKey = valueOf(options, "", "encipher");
    line.settingsFile = valueOf(options, "s", "settings");
    line.samples = valueOf(options, "n", "samples");
    line.interval = valueOf(options, "i", "interval");
    line.logLevel = valueOf(options, "l", "log-level");
    return line;
}

}  // namespace agent
