#include "settings.h"

#include <support/properties.h>

#include <cmath>
#include <filesystem>
#include <functional>
#include <optional>
#include <set>
#include <system_error>

#include "bad_input.h"
#include "file_checks.h"
#include "number.h"

namespace agent {
namespace {

using Properties = KestSupport::KestProperties<std::string>;

const std::string kDiskPath = "disk.path";
constexpr int kLongestInterval = 24 * 60 * 60;
constexpr int kMostSamples = 1'000'000'000;

// Puts a value into its setting; returns why it cannot be, or nothing.
using Taker = std::function<std::string(Settings&, const std::string& value)>;

Taker whole(std::function<void(Settings&, int)> put, int lowest, int highest) {
    return [=](Settings& settings, const std::string& value) -> std::string {
        const auto number = numberFrom<int>(value);
        if (!number || *number < lowest || *number > highest) {
            return "not a whole number from " + std::to_string(lowest) + " to " + std::to_string(highest);
        }
        put(settings, *number);
        return "";
    };
}

Taker whole(int Settings::*member, int lowest, int highest) {
    return whole([=](Settings& settings, int number) { settings.*member = number; }, lowest, highest);
}

Taker moduleLevel(const std::string& module) {
    return whole([=](Settings& settings, int level) { settings.moduleLevels[module] = level; }, -1, 9);
}

Taker limit(double Settings::*member) {
    return [=](Settings& settings, const std::string& value) -> std::string {
        const auto number = numberFrom<double>(value);
        if (!number || !std::isfinite(*number) || *number < 0) return "not a number of 0 or more";
        settings.*member = *number;
        return "";
    };
}

std::string takeYesOrNo(Settings& settings, const std::string& value) {
    if (value != "yes" && value != "no") return "neither yes nor no";
    settings.logToConsole = value == "yes";
    return "";
}

std::string takeStateFile(Settings& settings, const std::string& value) {
    if (value.empty()) return "no file's name";
    settings.stateFile = value;
    return "";
}

std::string takeLogFile(Settings& settings, const std::string& value) {
    settings.logFile = value;
    return "";
}

// All settings but kDiskPath, which may be given more than once.
const std::map<std::string, Taker>& takers() {
    static const std::map<std::string, Taker> all{
        {"interval", whole(&Settings::interval, 1, kLongestInterval)},
        {"samples", whole(&Settings::samples, 0, kMostSamples)},
        {"cpu.limit", limit(&Settings::cpuLimit)},
        {"memory.limit", limit(&Settings::memoryLimit)},
        {"disk.limit", limit(&Settings::diskLimit)},
        {"process.limit", limit(&Settings::processLimit)},
        {"state.file", takeStateFile},
        {"log.file", takeLogFile},
        {"log.console", takeYesOrNo},
        {"log.level", whole(&Settings::logLevel, 0, 9)},
        {"log.level.Cpu", moduleLevel("Cpu")},
        {"log.level.Memory", moduleLevel("Memory")},
        {"log.level.Disk", moduleLevel("Disk")},
        {"log.level.Process", moduleLevel("Process")},
    };
    return all;
}

std::string trimmed(const std::string& text) {
    const char* const blanks = " \t\r";
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

void take(Settings& settings, const std::string& name, const Taker& taker, const std::string& value) {
    const std::string reason = taker(settings, value);
    if (!reason.empty()) throw BadInput(name, "\"" + printable(value) + "\" is " + reason);
}

void takeDiskPaths(Settings& settings, const std::string& setting, const std::vector<std::string>& values) {
    for (const std::string& value : values) {
        const std::string path = trimmed(value);
        std::error_code error;
        static_cast<void>(std::filesystem::space(path, error));
        if (error) throw BadInput(setting, "\"" + printable(path) + "\": " + error.message());
        settings.diskPaths.push_back(path);
    }
}

std::string settingOf(const std::string& file, const std::string& name) {
    return "settings file " + printable(file) + ": " + name;
}

void takeFile(Settings& settings, const std::string& file) {
    const std::string where = "settings file " + printable(file);
    requireReadableText(where, file);
    Properties properties;
    properties.loadProperties(file, '=');
    std::set<std::string> given;
    for (const auto& [nameInFile, values] : properties.getProperties()) {
        const std::string name = trimmed(nameInFile);
        if (name.empty() || name.front() == '#') continue;
        if (name == kDiskPath) {
            if (given.insert(name).second) settings.diskPaths.clear();  // the default one
            takeDiskPaths(settings, settingOf(file, name), values);
            continue;
        }
        const auto taker = takers().find(name);
        if (taker == takers().end()) throw BadInput(where, "there is no setting \"" + printable(name) + "\"");
        if (values.size() > 1 || !given.insert(name).second) throw BadInput(where, name + " is given twice");
        take(settings, settingOf(file, name), taker->second, trimmed(values.front()));
    }
}

void takeOption(Settings& settings, const std::string& name, const Taker& taker,
                const std::optional<std::string>& value) {
    if (value) take(settings, "option --" + name, taker, *value);
}

}  // namespace

Settings loadSettings(const CommandLine& commandLine) {
    Settings settings;
    if (commandLine.settingsFile) takeFile(settings, *commandLine.settingsFile);
    takeOption(settings, "samples", whole(&Settings::samples, 1, kMostSamples), commandLine.samples);
    takeOption(settings, "interval", takers().at("interval"), commandLine.interval);
    takeOption(settings, "log-level", takers().at("log.level"), commandLine.logLevel);
    if (commandLine.console) settings.logToConsole = true;
    return settings;
}

}  // namespace agent
