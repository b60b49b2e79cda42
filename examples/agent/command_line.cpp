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
using KestSupport::KestProgramOptions;

const std::string kShortOptions = "hvcs:n:i:l:I";
const std::string kLongOptions =
    ":help:version:console:settings.:samples.:interval.:log-level.:inventory:encipher.:install:remove:service:";

// Splits --name=value, because the library's options take a value from the next argument.
std::vector<std::string> withSeparateValues(int argc, char** argv) {
    std::vector<std::string> words;
    for (int i = 0; i < argc; ++i) {
        const std::string word = argv[i];
        const std::size_t equals = word.find('=');
        const bool isLong = i > 0 && word.rfind("--", 0) == 0 && equals != std::string::npos;
        if (!isLong || kLongOptions.find(":" + word.substr(2, equals - 2) + ".:") == std::string::npos) {
            words.push_back(word);
            continue;
        }
        words.push_back(word.substr(0, equals));
        words.push_back(word.substr(equals + 1));
    }
    return words;
}

KestProgramOptions parse(std::vector<std::string> words) {
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    try {
        return KestProgramOptions(static_cast<int>(words.size()), arguments.data(), kShortOptions, kLongOptions, false);
    } catch (const KestException& refused) {
        const std::string text = refused.getText();
        const std::size_t reason = text.find(": ");
        throw BadInput(say("error.commandLine"),
                       say("error.hint", {printable(text.substr(reason == std::string::npos ? 0 : reason + 2))}));
    }
}

// The library reports an absent option by an exception.
std::optional<std::string> valueOf(const KestProgramOptions& options, const char* shortName, const char* longName) {
    try {
        return options.getSwitch(shortName, longName);
    } catch (const KestException&) {
        return std::nullopt;
    }
}

}  // namespace

std::string usage() {
    static constexpr std::pair<const char*, const char*> kOptions[] = {
        {"-s, --settings FILE", "help.settings"},
        {"-n, --samples N", "help.samples"},
        {"-i, --interval SECONDS", "help.interval"},
        {"-l, --log-level N", "help.logLevel"},
        {"-c, --console", "help.console"},
        {"-I, --inventory", "help.inventory"},
        {"    --encipher KEYFILE", "help.encipher"},
        {"    --install", "help.install"},
        {"    --remove", "help.remove"},
        {"    --service", "help.service"},
        {"-v, --version", "help.version"},
        {"-h, --help", "help.help"},
    };
    std::string text = say("help.purpose") + "\n\n";
    for (const auto& [option, meaning] : kOptions) {
        std::string column = option;
        column.resize(24, ' ');
        text += "  " + column + say(meaning) + "\n";
    }
    return text + "\n" + say("help.end") + "\n";
}

CommandLine parseCommandLine(int argc, char** argv) {
    const KestProgramOptions options = parse(withSeparateValues(argc, argv));
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
