#include "agent_log.h"

#include <support/log_record.h>

#include <cmath>
#include <cstdint>
#include <cstdio>

#include "bad_input.h"
#include "file_checks.h"
#include "messages.h"

namespace agent {

using KestSupport::KestLogging;

void logLine(const std::string& module, int level, const std::string& text) {
    KestSupport::KestLogRecord(level, module) << text;
}

std::string figureText(double value) {
    char text[512];  // the largest double has 309 digits
    std::snprintf(text, sizeof text, value == std::floor(value) ? "%.0f" : "%.2f", value);
    return text;
}

void requireLogFile(const Settings& settings) {
    if (settings.logFile.empty()) return;
    requireAppendable(say("error.log", {printable(settings.logFile)}), settings.logFile);
}

std::unique_ptr<KestLogging> openLog(const Settings& settings) {
    const bool toFile = !settings.logFile.empty();
    const int target = (toFile ? KestLogging::fileTarget : 0) |
                       (!toFile || settings.logToConsole ? KestLogging::standardOutputTarget : 0);
    constexpr std::uint64_t kKiB = 1024;
    auto logging = std::make_unique<KestLogging>(
        target, settings.logLevel,
        KestSupport::KestLogFileOptions{.name = settings.logFile,
                                        .maxBytes = static_cast<std::uint64_t>(settings.logSize) * kKiB,
                                        .daily = settings.logDaily,
                                        .keep = settings.logKeep,
                                        .escape = true});
    KestLogging::setInstance(*logging);
    useLogLevels(settings);
    return logging;
}

void useLogLevels(const Settings& settings) {
    KestLogging& logging = KestLogging::getInstance();
    logging.setLogLevel(settings.logLevel);
    for (const char* const module : {"Cpu", "Memory", "Disk", "Process"}) {
        const auto own = settings.moduleLevels.find(module);
        logging.setLogLevel(module, own == settings.moduleLevels.end() ? settings.logLevel : own->second);
    }
}

}  // namespace agent
