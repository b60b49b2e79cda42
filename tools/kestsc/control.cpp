// The commands start, stop, restart, start-all and stop-all.
#include <map>
#include <set>

#include "command_line.h"
#include "platform/start_order.h"
#include "report.h"
#include "transition.h"

namespace kestsc {
namespace {

namespace platform = KestSupport::platform;

// Runs the operation for one service and returns whether it succeeded. A failure is reported, so the caller continues
// with the next service. A request to end this program reaches the caller.
template <typename Operation>
bool attempt(const Task& task, Report& report, Operation operation) {
    try {
        report.succeed(task, operation());
        return true;
    } catch (const Interrupted&) {
        throw;
    } catch (const Failure& failure) {
        report.fail(failure);
        return false;
    }
}

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

}  // namespace

void startOne(const CommandLine& line, Report& report) {
    const Task task{"start", line.service};
    report.succeed(task, startService(Manager(task), task, line.words, line.patience));
}

void stopOne(const CommandLine& line, Report& report) {
    const Task task{"stop", line.service};
    report.succeed(task, stopService(Manager(task), task, line.patience));
}

void restartOne(const CommandLine& line, Report& report) {
    const Task task{"restart", line.service};
    const Manager manager(task);
    stopService(manager, task, line.patience);
    report.succeed(task, startService(manager, task, {}, line.patience));
}

void startAll(const CommandLine& line, Report& report) {
    const Task all{"start-all", ""};
    const Manager manager(all);
    const auto configurations = readableConfigurations(manager, all, report);
    const std::vector<std::string> order = platform::autoStartOrder(configurations);
    Dependencies dependencies;
    for (const platform::ServiceConfiguration& each : configurations)
        dependencies[each.name] = platform::dependencyNames(each.dependencies);
    std::set<std::string> failed;
    for (const std::string& name : order) {
        const Task task{"start", name};
        const bool started = attempt(task, report, [&] {
            // Starting the service would start the failed one again and wait for it again.
            for (const std::string& other : dependencies.at(name)) {
                if (failed.count(other) == 0) continue;
                throw Failure(task, platform::errorServiceDependencyFail,
                              "it needs " + other + ", which failed (1068)");
            }
            return startService(manager, task, {}, line.patience);
        });
        if (!started) failed.insert(name);
    }
    if (order.empty() && !report.asJson()) report.show("No services start automatically.\n");
}

void stopAll(const CommandLine& line, Report& report) {
    const Task all{"stop-all", ""};
    const Manager manager(all);
    const std::vector<platform::ServiceEntry> services = manager.list(all);
    std::set<std::string> active;
    for (const platform::ServiceEntry& entry : services) {
        if (entry.status.currentState != platform::kServiceStopped) active.insert(entry.name);
    }
    const std::vector<std::string> order = dependencyOrder(dependenciesOfAll(manager, all, services));
    for (auto name = order.rbegin(); name != order.rend(); ++name) {
        if (active.count(*name) == 0) continue;
        const Task task{"stop", *name};
        attempt(task, report, [&] { return stopService(manager, task, line.patience); });
    }
    if (active.empty() && !report.asJson()) report.show("No services are running.\n");
}

}  // namespace kestsc
