#include "agent_log.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>

#include "bad_input.h"
#include "file_checks.h"
#include "messages.h"

namespace agent {
namespace {

using KestSupport::KestLogging;

// The logger cuts the name at its last dot. Without an extension that dot may be in the path: "/var/a.d/log".
std::string baseName(const std::string& logFile) {
    const std::size_t dot = logFile.rfind('.');
    const std::size_t slash = logFile.rfind('/');
    const bool hasExtension = dot != std::string::npos && (slash == std::string::npos || dot > slash + 1);
    return hasExtension ? logFile : logFile + ".log";
}

}  // namespace

void logLine(const std::string& module, int level, const std::string& text) {
    if (!KestLogging::isAccessAllowed() || KestLogging::getInstance().getLogLevel() < level) return;
    KestLogging::getInstance() << KestSupport::setloglevel(module, level) << text << KestSupport::endrecord;
}

std::string figureText(double value) {
    char text[512];  // the largest double has 309 digits
    std::snprintf(text, sizeof text, value == std::floor(value) ? "%.0f" : "%.2f", value);
    return text;
}

void requireLogFile(const Settings& settings) {
    if (settings.logFile.empty()) return;
    requireCreatable(say("error.log", {printable(settings.logFile)}), baseName(settings.logFile) + ".kest-agent-probe");
}

std::unique_ptr<KestLogging> openLog(const Settings& settings) {
    const bool toFile = !settings.logFile.empty();
    const int target = (toFile ? KestLogging::fileTarget : 0) |
                       (!toFile || settings.logToConsole ? KestLogging::standardOutputTarget : 0);
    // The logger takes the number in the file name from rand(). The seed gives each run another file.
    std::srand(std::random_device{}());
    auto logging = std::make_unique<KestLogging>(baseName(settings.logFile), target, settings.logLevel);
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
