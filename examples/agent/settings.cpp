#include "settings.h"

#include <support/exceptions.h>
#include <support/properties.h>
#include <support/regular_expressions.h>
#include <support/version.h>

#include <cmath>
#include <filesystem>
#include <functional>
#include <optional>
#include <set>
#include <system_error>

#include "bad_input.h"
#include "file_checks.h"
#include "machine_figures.h"
#include "messages.h"
#include "number.h"
#include "secret.h"
#include "system.h"

namespace agent {
namespace {

using KestSupport::KestException;
using KestSupport::KestVersion;
using Properties = KestSupport::KestProperties<std::string>;

const std::string kDiskPath = "disk.path";
const std::string kHostLimit = ".host";  // follows the name of a limit
constexpr int kLongestInterval = 24 * 60 * 60;
constexpr int kMostSamples = 1'000'000'000;
constexpr int kLargestLog = 1'000'000'000;  // KiB
constexpr int kMostOldLogs = 999;

// Stores a value in its setting. Returns the reason why it cannot, or an empty text.
using Taker = std::function<std::string(Settings&, const std::string& value)>;

Taker whole(std::function<void(Settings&, int)> put, int lowest, int highest) {
    return [=](Settings& settings, const std::string& value) -> std::string {
        const auto number = numberFrom<int>(value);
        if (!number || *number < lowest || *number > highest) {
            return say("error.whole", {std::to_string(lowest), std::to_string(highest)});
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
        if (!number || !std::isfinite(*number) || *number < 0) return say("error.limit");
        settings.*member = *number;
        return "";
    };
}

Taker text(std::string Settings::*member) {
    return [=](Settings& settings, const std::string& value) -> std::string {
        settings.*member = value;
        return "";
    };
}

Taker yesOrNo(bool Settings::*member) {
    return [=](Settings& settings, const std::string& value) -> std::string {
        if (value != "yes" && value != "no") return say("error.yesOrNo");
        settings.*member = value == "yes";
        return "";
    };
}

std::string takeStateFile(Settings& settings, const std::string& value) {
    if (value.empty()) return say("error.fileName");
    settings.stateFile = value;
    return "";
}

std::string takeLanguage(Settings& settings, const std::string& value) {
    if (!value.empty() && !speak(value)) return say("error.locale");
    settings.language = value;
    return "";
}

std::string refuseOtherVersion(Settings&, const std::string& value) try {
    const KestVersion version(kVersion);
    for (const auto& range : KestVersion::createRangeVector(value)) {
        if (KestVersion::inRange(range, version)) return "";
    }
    return say("error.otherVersion", {kVersion});
} catch (const KestException& refused) {
    return say("error.version", {refused.getText()});
}

// The settings that are given once. The others may be given more than once, or are read together, or before these.
const std::map<std::string, Taker>& takers() {
    static const std::map<std::string, Taker> all{
        {"agent.version", refuseOtherVersion},
        {"host.name", text(&Settings::hostName)},
        {"interval", whole(&Settings::interval, 1, kLongestInterval)},
        {"samples", whole(&Settings::samples, 0, kMostSamples)},
        {"cpu.limit", limit(&Settings::cpuLimit)},
        {"memory.limit", limit(&Settings::memoryLimit)},
        {"disk.limit", limit(&Settings::diskLimit)},
        {"process.limit", limit(&Settings::processLimit)},
        {"state.file", takeStateFile},
        {"log.file", text(&Settings::logFile)},
        {"log.console", yesOrNo(&Settings::logToConsole)},
        {"log.size", whole(&Settings::logSize, 0, kLargestLog)},
        {"log.daily", yesOrNo(&Settings::logDaily)},
        {"log.keep", whole(&Settings::logKeep, 0, kMostOldLogs)},
        {"log.level", whole(&Settings::logLevel, 0, 9)},
        {"log.level.Cpu", moduleLevel("Cpu")},
        {"log.level.Memory", moduleLevel("Memory")},
        {"log.level.Disk", moduleLevel("Disk")},
        {"log.level.Process", moduleLevel("Process")},
    };
    return all;
}

std::string trimmed(const std::string& text) {
    const char* const kBlanks = " \t\r";
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

void take(Settings& settings, const std::string& name, const Taker& taker, const std::string& value) {
    const std::string reason = taker(settings, value);
    if (!reason.empty()) throw BadInput(name, say("error.value", {printable(value), reason}));
}

void takeDiskPaths(Settings& settings, const std::string& setting, const std::vector<std::string>& values) {
    for (const std::string& value : values) {
        const std::string path = trimmed(value);
        std::error_code error;
        // On Windows space accepts a path that does not exist.
        const std::filesystem::path found = std::filesystem::canonical(pathOf(path), error);
        if (!error) static_cast<void>(std::filesystem::space(found, error));
        if (error) throw BadInput(setting, say("error.path", {printable(path), error.message()}));
        settings.diskPaths.push_back(path);
    }
}

// The content of a settings file. all and one remove the settings that they return; those that remain are unknown.
class SettingsFile {
  public:
    explicit SettingsFile(const std::string& file) : m_file(printable(file)) {
        requireReadableText(describe(), file);
        Properties properties;
        properties.loadProperties(file, '=');
        for (const auto& [nameInFile, values] : properties.getProperties()) {
            const std::string name = trimmed(nameInFile);
            if (name.empty() || name.front() == '#') continue;
            std::vector<std::string>& all = m_values[name];
            for (const std::string& value : values)
                all.push_back(trimmed(value));
        }
    }

    std::string describe() const { return say("error.settings", {m_file}); }
    std::string describe(const std::string& name) const { return describe() + ": " + name; }

    std::vector<std::string> all(const std::string& name) {
        const auto found = m_values.find(name);
        if (found == m_values.end()) return {};
        std::vector<std::string> values = std::move(found->second);
        m_values.erase(found);
        return values;
    }

    std::optional<std::string> one(const std::string& name) {
        const std::vector<std::string> values = all(name);
        if (values.size() > 1) throw BadInput(describe(), say("error.twice", {name}));
        return values.empty() ? std::nullopt : std::optional(values.front());
    }

    void requireNothingLeft() const {
        if (m_values.empty()) return;
        throw BadInput(describe(), say("error.setting", {printable(m_values.begin()->first)}));
    }

  private:
    std::string m_file;  // for messages
    std::map<std::string, std::vector<std::string>> m_values;
};

// A line "PATTERN LIMIT" replaces the limit on a host whose name contains the pattern. The first match counts.
void takeHostLimits(Settings& settings, SettingsFile& file, const std::string& limitName) {
    const std::string name = limitName + kHostLimit;
    bool taken = false;
    for (const std::string& value : file.all(name)) {
        const std::size_t blank = value.find_last_of(" \t");
        if (blank == std::string::npos) {
            throw BadInput(file.describe(name), say("error.value", {printable(value), say("error.hostLimit")}));
        }
        KestSupport::KestRegularExpression<std::string> pattern;
        try {
            pattern.setPattern(trimmed(value.substr(0, blank)));
        } catch (const KestException& refused) {
            const std::string reason = say("error.pattern", {refused.getText()});
            throw BadInput(file.describe(name), say("error.value", {printable(value), reason}));
        }
        Settings checked = settings;
        take(checked, file.describe(name), takers().at(limitName), value.substr(blank + 1));
        if (taken || pattern.find(settings.hostName, 0) == std::string::npos) continue;
        settings = checked;
        taken = true;
    }
}

void takeSecret(Settings& settings, SettingsFile& file) {
    const std::optional<std::string> keyFile = file.one("secret.key.file");
    const std::optional<std::string> secret = file.one("secret");
    if (!secret) return;
    const std::string what = file.describe("secret");
    if (!keyFile) throw BadInput(what, say("error.secretNeedsKey"));
    settings.secret = decipher(what, *secret, readKey(*keyFile));
}

void takeFile(Settings& settings, const std::string& fileName) {
    SettingsFile file(fileName);
    // First, so that errors in the other settings are reported in this language.
    if (const auto language = file.one("language")) {
        take(settings, file.describe("language"), takeLanguage, *language);
    }
    for (const auto& [name, taker] : takers()) {
        if (const auto value = file.one(name)) take(settings, file.describe(name), taker, *value);
    }
    for (const char* const limitName : {"cpu.limit", "memory.limit", "disk.limit", "process.limit"})
        takeHostLimits(settings, file, limitName);
    if (const std::vector<std::string> paths = file.all(kDiskPath); !paths.empty()) {
        settings.diskPaths.clear();  // the default one
        takeDiskPaths(settings, file.describe(kDiskPath), paths);
    }
    takeSecret(settings, file);
    file.requireNothingLeft();
}

void takeOption(Settings& settings, const std::string& name, const Taker& taker,
                const std::optional<std::string>& value) {
    if (value) take(settings, say("error.option", {"--" + name}), taker, *value);
}

}  // namespace

const char* const kVersion = KEST_AGENT_VERSION;

Settings loadSettings(const CommandLine& commandLine) {
    Settings settings;
    settings.hostName = MachineFigures::hostName();
    if (commandLine.settingsFile) takeFile(settings, *commandLine.settingsFile);
    takeOption(settings, "samples", whole(&Settings::samples, 1, kMostSamples), commandLine.samples);
    takeOption(settings, "interval", takers().at("interval"), commandLine.interval);
    takeOption(settings, "log-level", takers().at("log.level"), commandLine.logLevel);
    if (commandLine.console) settings.logToConsole = true;
    return settings;
}

}  // namespace agent
