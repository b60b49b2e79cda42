// kest-agent: watches this machine and tells when a figure crosses its limit.
#include <cstdio>
#include <exception>
#include <memory>

#include <support/exceptions.h>

#include "agent.h"
#include "agent_log.h"
#include "bad_input.h"
#include "command_line.h"
#include "settings.h"

namespace {

constexpr int kClean = 0;
constexpr int kUnusableInput = 2;

int runAgent(const agent::CommandLine& commandLine) {
    const agent::Settings settings = agent::loadSettings(commandLine);
    agent::requireLogFile(settings);
    const agent::StateFile stateFile(settings.stateFile);
    const std::unique_ptr<KestSupport::KestLogging> logging = agent::openLog(settings);
    agent::Agent host(settings, stateFile);
    host.start("", false);
    if (!host.failure().empty()) throw agent::BadInput(host.failure());
    return kClean;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const agent::CommandLine commandLine = agent::parseCommandLine(argc, argv);
        if (!commandLine.help) return runAgent(commandLine);
        std::fputs(agent::kUsage, stdout);
        return kClean;
    } catch (const KestSupport::KestException& failed) {
        std::fprintf(stderr, "kest-agent: %s\n", agent::printable(failed.getText()).c_str());
    } catch (const std::exception& failed) {
        std::fprintf(stderr, "kest-agent: %s\n", failed.what());
    }
    return kUnusableInput;
}
