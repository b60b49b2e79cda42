// The commands install, delete and config.
#include "command_line.h"
#include "queries.h"
#include "report.h"

namespace kestsc {
namespace {

namespace platform = KestSupport::platform;

void deleteOne(const Manager& manager, const Task& task, Report& report) {
    const SharedHandle service = manager.open(task, platform::kServiceDelete | platform::kServiceQueryStatus);
    require(task, platform::serviceManager().deleteService(service.get()));
    // Some managers keep a stopped service until its last handle is closed.
    ServiceStatus status;
    const ErrorCode error = platform::serviceManager().queryStatus(service.get(), status);
    const bool isGone = error == platform::errorServiceDoesNotExist ||
                        (error == platform::errorSuccess && status.currentState == platform::kServiceStopped);
    report.succeed(task, isGone ? "deleted" : "marked for deletion; it is deleted when it stops");
}

}  // namespace

// Deletes the new service again when it cannot set the description.
void installOne(const CommandLine& line, Report& report) {
    const Task task{"install", line.service};
    platform::ServiceConfiguration wanted;
    wanted.name = line.service;
    wanted.displayName = line.change.displayName.value_or(line.service);
    wanted.startType = line.change.startType.value_or(platform::kServiceAutoStart);
    wanted.commandLine = registeredCommand(line.words, *line.command);
    wanted.restart = line.change.restart.value_or(platform::kServiceRestartNever);
    wanted.dependencies = line.change.dependencies.value_or("");
    const Manager manager(task, platform::kServiceManagerCreateService);
    const SharedHandle service =
        manager.create(task, wanted, platform::kServiceChangeConfiguration | platform::kServiceDelete);
    if (line.description) {
        platform::ServiceManager& services = platform::serviceManager();
        const ErrorCode error = services.setDescription(service.get(), wideText(*line.description));
        if (error != 0) services.deleteService(service.get());
        require(task, error);
    }
    report.succeed(task, "installed");
}

void deleteEach(const CommandLine& line, Report& report) {
    const Manager manager({"delete", line.service});
    for (const std::string& service : servicesOf(line))
        attempt(report, [&] { deleteOne(manager, {"delete", service}, report); });
}

void configureOne(const CommandLine& line, Report& report) {
    const Task task{"config", line.service};
    const Manager manager(task);
    const platform::ServiceChange& change = line.change;
    const bool changes =
        change.displayName || change.startType || change.commandLine || change.dependencies || change.restart;
    if (!changes && !line.description) {
        showConfiguration(manager, task, report);
        return;
    }
    const SharedHandle service = manager.open(task, platform::kServiceChangeConfiguration);
    platform::ServiceManager& services = platform::serviceManager();
    if (changes) require(task, services.changeConfiguration(service.get(), change));
    if (line.description) require(task, services.setDescription(service.get(), wideText(*line.description)));
    report.succeed(task, "changed");
}

}  // namespace kestsc
