// kest-agent: watches this machine and logs when a figure crosses its limit.
#include <cstdio>
#include <exception>
#include <iostream>
#include <memory>
#include <string>

#include <support/exceptions.h>

#include "agent.h"
#include "agent_log.h"
#include "bad_input.h"
#include "command_line.h"
#include "inventory.h"
#include "messages.h"
#include "registration.h"
#include "secret.h"
#include "settings.h"

namespace {

constexpr int kClean = 0;
constexpr int kUnusableInput = 2;

int printInventory(const agent::CommandLine& commandLine) {
    const auto root = agent::takeInventory(agent::loadSettings(commandLine));
    std::fputs(agent::inventoryText(*root).c_str(), stdout);
    return kClean;
}

int printEnciphered(const std::string& keyFile) {
    const std::string key = agent::readKey(keyFile);
    std::string secret;
    std::getline(std::cin, secret);
    if (secret.empty()) throw agent::BadInput(agent::say("error.input"), agent::say("error.noSecret"));
    std::printf("secret=%s\n", agent::encipher(secret, key).c_str());
    return kClean;
}

int install(const agent::CommandLine& commandLine) {
    agent::loadSettings(commandLine);  // a service whose settings have an error would never start
    agent::installService(commandLine.settingsFile);
    std::puts(agent::say("service.installed", {agent::kServiceName}).c_str());
    return kClean;
}

int remove() {
    agent::removeService();
    std::puts(agent::say("service.removed", {agent::kServiceName}).c_str());
    return kClean;
}

int runAgent(const agent::CommandLine& commandLine) {
    const agent::Settings settings = agent::loadSettings(commandLine);
    agent::requireLogFile(settings);
    const agent::StateFile stateFile(settings.stateFile);
    const std::unique_ptr<KestSupport::KestLogging> logging = agent::openLog(settings);
    agent::Agent host(
        settings, [&] { return agent::loadSettings(commandLine); }, stateFile);
    host.start("", commandLine.service);
    if (!host.hasRun()) {
        throw agent::BadInput(agent::say("error.service", {agent::kServiceName}),
                              agent::say("error.notStarted", {agent::kServiceName}));
    }
    if (!host.failure().empty()) throw agent::BadInput(host.failure());
    return kClean;
}

int run(const agent::CommandLine& commandLine) {
    if (commandLine.version) {
        std::printf("kest-agent %s\n", agent::kVersion);
        return kClean;
    }
    if (commandLine.inventory) return printInventory(commandLine);
    if (commandLine.install) return install(commandLine);
    if (commandLine.remove) return remove();
    if (commandLine.encipherKey) return printEnciphered(*commandLine.encipherKey);
    if (!commandLine.help) return runAgent(commandLine);
    std::fputs(agent::usage().c_str(), stdout);
    return kClean;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        agent::speakTheUsersLanguage();
        return run(agent::parseCommandLine(argc, argv));
    } catch (const KestSupport::KestException& failed) {
        std::fprintf(stderr, "kest-agent: %s\n", agent::printable(failed.getText()).c_str());
    } catch (const std::exception& failed) {
        std::fprintf(stderr, "kest-agent: %s\n", failed.what());
    }
    return kUnusableInput;
}
