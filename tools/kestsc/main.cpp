// kestsc: the command-line client of the service manager.
#include <exception>

#include "command_line.h"
#include "help.h"
#include "platform/interruption.h"
#include "report.h"
#include "support/exceptions.h"
#include "text.h"

namespace kestsc {
namespace {

ExitCode run(const std::vector<std::string>& words) {
    const CommandLine line = parseCommandLine(words);
    const bool asked = line.help || line.version;
    Report report(line.json && !asked);
    int request = 0;
    if (line.help) {
        report.show(line.command != nullptr ? commandHelp(*line.command) : generalHelp());
    } else if (line.version) {
        report.show(versionText());
    } else {
        try {
            line.command->run(line, report);
        } catch (const Interrupted& interrupted) {
            report.fail(interrupted);
            request = interrupted.request();
        } catch (const Failure& failure) {
            report.fail(failure);
        }
    }
    const ExitCode code = report.finish();
    // A shell that runs a script sees from the signal that the user wanted the script to end too.
    if (request != 0) KestSupport::platform::Interruption::takeEffect(request);
    return code;
}

}  // namespace
}  // namespace kestsc

int main(int argc, char** argv) {
    try {
        return kestsc::run({argv + (argc > 0 ? 1 : 0), argv + argc});
    } catch (const kestsc::UsageError& refused) {
        kestsc::complain(refused.what());
        return kestsc::kExitUsage;
    } catch (const KestSupport::KestException& failed) {
        kestsc::complain(kestsc::printable(failed.getText()));
    } catch (const std::exception& failed) {
        kestsc::complain(failed.what());
    }
    return kestsc::kExitFailed;
}
