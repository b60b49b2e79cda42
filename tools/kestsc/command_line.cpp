#include "command_line.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <utility>

#include "platform/process.h"
#include "text.h"
#include "words.h"

namespace kestsc {
namespace {

namespace platform = KestSupport::platform;

constexpr unsigned kOptionsOfAll = kOptionHelp | kOptionVersion | kOptionJson;

[[noreturn]] void refuse(const std::string& reason, const CommandEntry* command = nullptr) {
    const std::string name = command == nullptr ? "" : command->name + std::string(": ");
    const std::string help = command == nullptr ? "" : command->name + std::string(" ");
    throw UsageError(name + printable(shortened(reason, 200)) + " (kestsc " + help + "--help explains)");
}

bool takesOnlyNames(const CommandEntry& command) {
    const std::string_view arguments = command.arguments;
    return arguments == "NAME..." || arguments == "[NAME...]";
}

// Whether words after "--" are arguments of the services.
bool passesArguments(const CommandEntry& command) {
    return std::string_view(command.arguments).ends_with(" [-- ARGUMENT...]");
}

// Words of other tools, and what there is instead.
constexpr std::pair<std::string_view, const char*> kForeignWords[] = {
    {"add", "install"},
    {"create", "install"},
    {"disable", "config NAME --start disabled"},
    {"enable", "config NAME --start auto"},
    {"help", "--help"},
    {"kill", "stop --force"},
    {"ls", "list"},
    {"ps", "list"},
    {"reload", "control NAME reload"},
    {"remove", "delete"},
    {"show", "status"},
    {"tail", "logs --follow"},
    {"uninstall", "delete"},
    {"version", "--version"},
};

// Returns the end of a message about an unknown command.
std::string commandSuggestionFor(const std::string& word) {
    for (const auto& [foreign, own] : kForeignWords) {
        if (foreign == word) return std::string("; did you mean ") + own + "?";
    }
    std::vector<std::string> commands;
    for (const CommandEntry& entry : kCommands)
        commands.emplace_back(entry.name);
    return suggestionFor(word, commands);
}

/// The words, split into command, arguments and options. Values are not checked here.
class Words {
  public:
    explicit Words(const std::vector<std::string>& words) {
        bool optionsAreOver = false;
        for (auto word = words.begin(); word != words.end(); ++word) {
            if (optionsAreOver || word->size() < 2 || word->front() != '-') {
                takeArgument(*word);
            } else if (*word == "--") {
                optionsAreOver = true;
                beforeDashes = arguments.size();
            } else {
                takeOption(word, words.end());
            }
        }
    }

    const CommandEntry* command = nullptr;
    std::vector<std::string> arguments;
    std::size_t beforeDashes = kAnyNumber;    // the number of arguments before "--"
    std::map<unsigned, std::string> options;  // by their bits

  private:
    using Position = std::vector<std::string>::const_iterator;

    void takeArgument(const std::string& word) {
        if (command != nullptr) {
            arguments.push_back(word);
            return;
        }
        const auto found = std::find_if(kCommands.begin(), kCommands.end(),
                                        [&](const CommandEntry& entry) { return entry.name == word; });
        if (found == kCommands.end()) {
            refuse("there is no command " + (word.empty() ? "\"\"" : word) + commandSuggestionFor(word));
        }
        command = &*found;
    }

    void takeOption(Position& word, Position end) {
        const std::size_t equals = std::min(word->find('='), word->size());
        const std::string name = word->substr(0, equals);
        const unsigned taken = kOptionsOfAll | (command == nullptr ? 0 : command->options);
        const auto found = std::find_if(kOptions.begin(), kOptions.end(), [&](const OptionEntry& entry) {
            const bool isShort = name == entry.letter && (taken & entry.bit) != 0;
            return isShort || name == std::string("--") + entry.name;
        });
        const bool mayFollow = command != nullptr && command->most == kAnyNumber && !takesOnlyNames(*command);
        if (found == kOptions.end()) {
            refuse("unknown option " + name + (mayFollow ? "; put arguments of the service after --" : ""), command);
        }
        std::string value;
        if (*found->value == '\0') {
            if (equals < word->size()) refuse(name + " takes no value", command);
        } else if (equals < word->size()) {
            value = word->substr(equals + 1);
        } else if (word + 1 != end) {
            value = *++word;
        } else {
            refuse(name + " needs a value: " + found->value, command);
        }
        if (!options.emplace(found->bit, value).second) refuse(name + " is given twice", command);
    }
};

void requireFitting(const Words& words) {
    const CommandEntry* const command = words.command;
    if (command == nullptr) refuse("no command is given");
    for (const OptionEntry& option : kOptions) {
        const bool isTaken = ((command->options | kOptionsOfAll) & option.bit) != 0;
        if (!isTaken && words.options.count(option.bit) != 0) {
            refuse(std::string("there is no option --") + option.name + " here", command);
        }
    }
    const std::vector<std::string>& given = words.arguments;
    if (given.size() < command->fewest) {
        // Of "NAME COMMAND...", the second word.
        const std::string_view all = command->arguments;
        const std::string_view second = all.substr(std::min(all.find(' ') + 1, all.size()));
        refuse((given.empty() ? "NAME" : std::string(second.substr(0, second.find('.')))) + " is missing", command);
    }
    if (given.size() > command->most) refuse("unexpected argument " + given[command->most], command);
    for (const OptionEntry& option : kOptions) {
        const bool limitsTheWait = option.bit == kOptionTimeout || option.bit == kOptionForce;
        if (limitsTheWait && words.options.count(option.bit) != 0 && words.options.count(kOptionNoWait) != 0) {
            refuse(std::string("--") + option.name + " and --no-wait exclude each other", command);
        }
    }
    if (words.options.count(kOptionFollow) != 0 && words.options.count(kOptionJson) != 0) {
        refuse("--follow and --json exclude each other", command);
    }
}

constexpr std::uint32_t kMostSeconds = 86'400;
constexpr std::uint32_t kMostLines = 10'000'000;

std::uint32_t numberOf(const std::string& text, std::uint32_t most, const char* option, const CommandEntry* command) {
    const std::optional<std::uint32_t> number = wholeNumber(text);
    if (number && *number >= 1 && *number <= most) return *number;
    refuse(std::string("--") + option + ": " + text + " is not a whole number from 1 to " + std::to_string(most),
           command);
}

void setChange(CommandLine& line, unsigned bit, const std::string& value) {
    switch (bit) {
        case kOptionDisplay:
            line.change.displayName = value;
            break;
        case kOptionDescription:
            line.description = value;
            break;
        case kOptionStart:
            line.change.startType = startTypeOf(value);
            if (!line.change.startType) refuse("--start: " + value + " is not auto, demand or disabled", line.command);
            break;
        case kOptionDepends:
            line.change.dependencies = dependenciesOf(value);
            if (!line.change.dependencies) refuse("--depends: a name is empty", line.command);
            break;
        case kOptionCommand:
            line.change.commandLine = registeredCommand({value}, *line.command);
            break;
        case kOptionRestart:
            line.change.restart = restartOf(value);
            if (!line.change.restart) {
                refuse("--restart: " + value + " is not never, on-failure or always", line.command);
            }
            break;
        default:
            break;
    }
}

}  // namespace

const std::vector<OptionEntry> kOptions{
    {kOptionTimeout, "timeout", "SECONDS",
     "time-out for each service; default 30, or more when the service asks for it"},
    {kOptionNoWait, "no-wait", "", "send the request and return without waiting"},
    {kOptionForce, "force", "", "kill a service that does not stop before the time-out"},
    {kOptionDisplay, "display", "TEXT", "display name"},
    {kOptionDescription, "description", "TEXT", "description of the service"},
    {kOptionStart, "start", "TYPE", "start type: auto (started by start-all), demand or disabled"},
    {kOptionRestart, "restart", "WHEN", "which ends make run-all start it again: never, on-failure or always"},
    {kOptionDepends, "depends", "A,B", "services that it depends on; an empty text means none"},
    {kOptionCommand, "command", "TEXT", "the program and its arguments, quoted as in a shell"},
    {kOptionFollow, "follow", "", "continue with what the service writes from now on", "-f"},
    {kOptionLines, "lines", "N", "begin with the last N lines", "-n"},
    {kOptionJson, "json", "", "print the results as one JSON document"},
    {kOptionHelp, "help", "", "this text; after a command, the help of that command", "-h"},
    {kOptionVersion, "version", "", "print the version"},
};

CommandLine parseCommandLine(const std::vector<std::string>& words) {
    const Words given(words);
    CommandLine line;
    line.command = given.command;
    line.help = given.options.count(kOptionHelp) != 0;
    line.version = given.options.count(kOptionVersion) != 0;
    line.json = given.options.count(kOptionJson) != 0;
    if (line.help || line.version) return line;
    requireFitting(given);
    if (!given.arguments.empty()) {
        line.service = given.arguments.front();
        line.words.assign(given.arguments.begin() + 1, given.arguments.end());
        // A first name that begins with a dash also follows "--".
        const std::size_t names = std::clamp<std::size_t>(given.beforeDashes, 1, given.arguments.size());
        const auto rest = line.words.begin() + static_cast<std::ptrdiff_t>(names - 1);
        if (passesArguments(*line.command)) {
            line.arguments.assign(rest, line.words.end());
            line.words.erase(rest, line.words.end());
        }
    }
    for (const auto& [bit, value] : given.options) {
        if (bit == kOptionTimeout) line.patience.seconds = numberOf(value, kMostSeconds, "timeout", line.command);
        if (bit == kOptionLines) line.lines = numberOf(value, kMostLines, "lines", line.command);
        if (bit == kOptionFollow) line.follows = true;
        if (bit == kOptionNoWait) line.patience.waits = false;
        if (bit == kOptionForce) line.patience.forces = true;
        setChange(line, bit, value);
    }
    return line;
}

std::vector<std::string> servicesOf(const CommandLine& line) {
    std::vector<std::string> services{line.service};
    services.insert(services.end(), line.words.begin(), line.words.end());
    return services;
}

std::string registeredCommand(const std::vector<std::string>& words, const CommandEntry& command) {
    std::vector<std::string> parts = words.size() == 1 ? platform::splitArguments(words.front()) : words;
    if (parts.empty() || parts.front().empty()) refuse("the command names no program", &command);
    // Texts are UTF-8 on each system.
    const std::filesystem::path program = std::u8string(parts.front().begin(), parts.front().end());
    if (program.is_absolute() || !program.has_parent_path()) {
        return words.size() == 1 ? platform::quoteProgram(words.front()) : platform::joinArguments(parts);
    }
    const std::u8string whole = std::filesystem::absolute(program).lexically_normal().u8string();
    parts.front().assign(whole.begin(), whole.end());
    return platform::joinArguments(parts);
}

}  // namespace kestsc
