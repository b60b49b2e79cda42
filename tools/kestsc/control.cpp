// The commands start, stop, restart, control, wait, start-all and stop-all.
#include <map>
#include <set>

#include "command_line.h"
#include "platform/start_order.h"
#include "report.h"
#include "text.h"
#include "transition.h"

namespace kestsc {
namespace {

namespace platform = KestSupport::platform;

using Dependencies = std::map<std::string, std::vector<std::string>>;

// Returns the configurations. Reports each one that cannot be read, because its service may have to be started.
std::vector<platform::ServiceConfiguration> readableConfigurations(const Manager& manager, const Task& task,
                                                                   Report& report) {
    std::vector<platform::ServiceConfiguration> configurations;
    for (const platform::ServiceEntry& entry : manager.list(task)) {
        try {
            require({task.operation, entry.name}, entry.error);
            configurations.push_back(manager.configurationOf({task.operation, entry.name}));
        } catch (const Failure& failure) {
            report.fail(failure);
        }
    }
    return configurations;
}

// Returns the names that each service depends on. A service whose configuration cannot be read is stopped too, as one
// without dependencies.
Dependencies dependenciesOfAll(const Manager& manager, const Task& task,
                               const std::vector<platform::ServiceEntry>& services) {
    Dependencies all;
    for (const platform::ServiceEntry& entry : services) {
        std::vector<std::string>& needed = all[entry.name];
        try {
            needed = platform::dependencyNames(manager.configurationOf({task.operation, entry.name}).dependencies);
        } catch (const Failure&) {
            needed.clear();
        }
    }
    return all;
}

// Returns all services, each after those that it depends on.
std::vector<std::string> dependencyOrder(const Dependencies& dependencies) {
    platform::StartOrder order([&](const std::string& name, std::vector<std::string>& needed) {
        const auto found = dependencies.find(name);
        if (found != dependencies.end()) needed = found->second;
        return found != dependencies.end();
    });
    for (const auto& [name, needed] : dependencies)
        order.add(name);
    return order.order();
}

// The services of a command whose last word is not a name.
std::vector<std::string> namesBeforeLast(const CommandLine& line) {
    std::vector<std::string> names = servicesOf(line);
    names.pop_back();
    return names;
}

}  // namespace

void startEach(const CommandLine& line, Report& report) {
    const Manager manager({"start", line.service});
    for (const std::string& service : servicesOf(line)) {
        const Task task{"start", service};
        attempt(report, [&] {
            try {
                report.succeed(task, startService(manager, task, line.arguments, line.patience));
            } catch (const Failure& failure) {
                const bool isSuggested = failure.reason().ends_with('?');
                if (failure.exitCode() != kExitNotInstalled || service == line.service || isSuggested) throw;
                throw Failure(task, failure.error(), failure.reason() + "; arguments for services follow --");
            }
        });
    }
}

void stopEach(const CommandLine& line, Report& report) {
    const Manager manager({"stop", line.service});
    for (const std::string& service : servicesOf(line)) {
        const Task task{"stop", service};
        attempt(report, [&] { report.succeed(task, stopService(manager, task, line.patience)); });
    }
}

void restartEach(const CommandLine& line, Report& report) {
    const Manager manager({"restart", line.service});
    for (const std::string& service : servicesOf(line)) {
        const Task task{"restart", service};
        attempt(report, [&] {
            stopService(manager, task, line.patience);
            report.succeed(task, startService(manager, task, {}, line.patience));
        });
    }
}

void controlEach(const CommandLine& line, Report& report) {
    const std::string& word = line.words.back();
    const std::optional<std::uint32_t> code = controlOf(word);
    if (!code) {
        throw UsageError("control: " + printable(shortened(word, 100)) +
                         " is not reload, pause, continue, interrogate or a number from 128 to 255 (kestsc control "
                         "--help explains)");
    }
    constexpr std::uint32_t kAccess =
        platform::kServicePauseContinue | platform::kServiceInterrogate | platform::kServiceUserControl;
    const Manager manager({"control", line.service});
    for (const std::string& name : namesBeforeLast(line)) {
        const Task task{"control", name};
        attempt(report, [&] {
            const SharedHandle service = manager.open(task, kAccess);
            ServiceStatus answer;
            require(task, platform::serviceManager().control(service.get(), *code, answer));
            report.succeed(task, "accepted " + word + "; " + stateWord(answer.currentState));
        });
    }
}

void waitForEach(const CommandLine& line, Report& report) {
    const std::string& word = line.words.back();
    const std::optional<std::uint32_t> wanted = stateOf(word);
    if (!wanted) {
        throw UsageError("wait: " + printable(shortened(word, 100)) +
                         " is not running, stopped or paused (kestsc wait --help explains)");
    }
    const Manager manager({"wait", line.service});
    for (const std::string& name : namesBeforeLast(line)) {
        const Task task{"wait", name};
        attempt(report, [&] {
            Wait wait(task, manager.open(task, platform::kServiceQueryStatus), line.patience);
            while (wait.queryStatus().currentState != *wanted)
                wait.pause();
            report.succeed(task, "is " + word);
        });
    }
}

std::set<std::string> startAutomatic(const Manager& manager, const Patience& patience, Report& report) {
    const Task all{"start-all", ""};
    const auto configurations = readableConfigurations(manager, all, report);
    const std::vector<std::string> order = platform::autoStartOrder(configurations);
    Dependencies dependencies;
    for (const platform::ServiceConfiguration& each : configurations)
        dependencies[each.name] = platform::dependencyNames(each.dependencies);
    std::set<std::string> failed;
    for (const std::string& name : order) {
        const Task task{"start", name};
        const bool started = attempt(report, [&] {
            // Starting the service would start the failed one again and wait for it again.
            for (const std::string& other : dependencies.at(name)) {
                if (failed.count(other) == 0) continue;
                throw Failure(task, platform::errorServiceDependencyFail,
                              "it needs " + other + ", which failed (1068)");
            }
            report.succeed(task, startService(manager, task, {}, patience));
        });
        if (!started) failed.insert(name);
    }
    if (order.empty() && !report.asJson()) report.show("No services start automatically.\n");
    return failed;
}

void startAll(const CommandLine& line, Report& report) {
    startAutomatic(Manager::ofOwnServices({"start-all", ""}), line.patience, report);
}

void stopAll(const CommandLine& line, Report& report) {
    const Task all{"stop-all", ""};
    const Manager manager = Manager::ofOwnServices(all);
    const std::vector<platform::ServiceEntry> services = manager.list(all);
    std::set<std::string> active;
    for (const platform::ServiceEntry& entry : services) {
        if (entry.status.currentState != platform::kServiceStopped) active.insert(entry.name);
    }
    const std::vector<std::string> order = dependencyOrder(dependenciesOfAll(manager, all, services));
    for (auto name = order.rbegin(); name != order.rend(); ++name) {
        if (active.count(*name) == 0) continue;
        const Task task{"stop", *name};
        attempt(report, [&] { report.succeed(task, stopService(manager, task, line.patience)); });
    }
    if (active.empty() && !report.asJson()) report.show("No services are running.\n");
}

}  // namespace kestsc
