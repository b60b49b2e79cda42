#include "command_line.h"

#include <support/exceptions.h>
#include <support/program_options.h>

#include <vector>

#include "bad_input.h"

namespace agent {
namespace {

using KestSupport::KestException;
using KestSupport::KestProgramOptions;

const std::string kShortOptions = "hcs:n:i:l:";
const std::string kLongOptions = ":help:console:settings.:samples.:interval.:log-level.:";

// An option that takes its value from the next argument is also understood as --name=value.
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
        throw BadInput("command line", printable(text.substr(reason == std::string::npos ? 0 : reason + 2)) +
                                           " (kest-agent --help lists the options)");
    }
}

// An absent option is told by an exception.
std::optional<std::string> valueOf(const KestProgramOptions& options, const char* shortName, const char* longName) {
    try {
        return options.getSwitch(shortName, longName);
    } catch (const KestException&) {
        return std::nullopt;
    }
}

}  // namespace

const char* const kUsage =
    "kest-agent - watches this machine's load, memory, file systems and processes\n"
    "\n"
    "  -s, --settings FILE    settings, one name=value per line (see settings.properties)\n"
    "  -n, --samples N        end after N samples; without it, run until asked to end\n"
    "  -i, --interval SECONDS time from one sample to the next\n"
    "  -l, --log-level N      0 (little) to 9 (everything)\n"
    "  -c, --console          log to standard output, also when there is a log file\n"
    "  -h, --help             this text\n"
    "\n"
    "Ctrl+C and SIGTERM end it cleanly. Exit code: 0, or 2 when something given to it cannot be used.\n";

CommandLine parseCommandLine(int argc, char** argv) {
    const KestProgramOptions options = parse(withSeparateValues(argc, argv));
    if (options.getArgumentCount() > 0) {
        throw BadInput("command line", "unexpected argument: " + printable(options.getArgument(0u)));
    }
    CommandLine line;
    line.help = valueOf(options, "h", "help").has_value();
    line.console = valueOf(options, "c", "console").has_value();
    line.settingsFile = valueOf(options, "s", "settings");
    line.samples = valueOf(options, "n", "samples");
    line.interval = valueOf(options, "i", "interval");
    line.logLevel = valueOf(options, "l", "log-level");
    return line;
}

}  // namespace agent
