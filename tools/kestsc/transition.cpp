#include "transition.h"

#include <algorithm>

#include "platform/process.h"

namespace kestsc {
namespace {

namespace platform = KestSupport::platform;

[[noreturn]] void failFor(const Task& task, const ServiceStatus& status, const std::string& wanted) {
    std::string reason = "the service is " + stateWord(status.currentState) + " instead of " + wanted;
    if (status.currentState == platform::kServiceStopped) reason += ": " + endText(status);
    throw Failure(task, platform::errorGeneralFailure, reason);
}

void awaitRunning(Wait& wait, const Task& task) {
    for (;;) {
        const ServiceStatus status = wait.queryStatus();
        switch (status.currentState) {
            case platform::kServiceStartPending:
                break;
            case platform::kServiceStopped:
            case platform::kServiceStopPending:
                failFor(task, status, "running");
            default:
                return;
        }
        wait.pause();
    }
}

void awaitStopped(Wait& wait, const Task& task) {
    for (;;) {
        const ServiceStatus status = wait.queryStatus();
        if (status.currentState == platform::kServiceStopped) return;
        if (status.currentState != platform::kServiceStopPending) failFor(task, status, "stopped");
        wait.pause();
    }
}

// Returns the services that depend on this one and are not stopped.
std::vector<std::string> runningDependents(const Manager& manager, const Task& task) {
    std::vector<std::string> dependents;
    for (const platform::ServiceEntry& entry : manager.list(task)) {
        if (entry.error != 0 || entry.status.currentState == platform::kServiceStopped) continue;
        const auto configuration = manager.configurationOf({task.operation, entry.name});
        const std::vector<std::string> needed = platform::dependencyNames(configuration.dependencies);
        if (std::find(needed.begin(), needed.end(), task.service) != needed.end()) dependents.push_back(entry.name);
    }
    return dependents;
}

std::string stateOf(const Manager& manager, const Task& task) {
    try {
        const SharedHandle service = manager.open(task, platform::kServiceQueryStatus);
        ServiceStatus status;
        require(task, platform::serviceManager().queryStatus(service.get(), status));
        return stateWord(status.currentState);
    } catch (const Failure& failure) {
        return failure.error() == platform::errorServiceDoesNotExist ? "not installed" : "unknown";
    }
}

// Returns the services that this one depends on and that do not run, each with its state: "db is stopped".
std::vector<std::string> missingDependencies(const Manager& manager, const Task& task) {
    std::vector<std::string> missing;
    std::vector<std::string> needed = platform::dependencyNames(manager.configurationOf(task).dependencies);
    for (std::string& name : needed) {
        const std::string state = stateOf(manager, {task.operation, name});
        if (state != stateWord(platform::kServiceRunning)) missing.push_back(name.append(" is ").append(state));
    }
    return missing;
}

// Fails because of the states of other services, and names them.
[[noreturn]] void failForOthers(const Manager& manager, const Task& task, ErrorCode error) {
    std::string reason = errorText(error);
    try {
        const bool isStop = error == platform::errorDependentServicesRunning;
        const auto others = isStop ? runningDependents(manager, task) : missingDependencies(manager, task);
        if (!others.empty()) reason += ": " + listed(others);
    } catch (const Failure&) {
        // The first failure is reported without the names.
    }
    throw Failure(task, error, reason);
}

// The program was started and has not called the dispatcher. Many users try a program that is no service.
[[noreturn]] void failForProgram(const Manager& manager, const Task& task, ErrorCode error) {
    const bool ended = error == platform::errorProcessAborted;
    std::string reason = errorText(error) + "; the program " + (ended ? "ended before it answered" : "did not answer") +
                         " as a service, which only a program with KestService::start does";
    if (!manager.location().empty()) reason += "; kestsc logs shows its output";
    throw Failure(task, error, reason);
}

[[noreturn]] void failToChange(const Manager& manager, const Task& task, ErrorCode error) {
    switch (error) {
        case platform::errorDependentServicesRunning:
        case platform::errorServiceDependencyDeleted:
        case platform::errorServiceDependencyFail:
            failForOthers(manager, task, error);
        default:
            throw Failure(task, error);
    }
}

// The system has refused the file of the program.
[[noreturn]] void failForFile(const Manager& manager, const Task& task, ErrorCode error) {
    std::string reason = errorText(error);
    try {
        const auto words = platform::splitArguments(manager.configurationOf(task).commandLine);
        if (!words.empty()) reason += ": " + words.front();
    } catch (const Failure&) {
        throw Failure(task, error);
    }
    throw Failure(task, error, reason);
}

[[noreturn]] void failToStart(const Manager& manager, const Task& task, ErrorCode error) {
    switch (error) {
        case platform::errorServiceRequestTimeout:
        case platform::errorProcessAborted:
            failForProgram(manager, task, error);
        case platform::errorFileNotFound:
        case platform::errorBadExecutable:
            failForFile(manager, task, error);
        default:
            failToChange(manager, task, error);
    }
}

// Undoes the start during which this program was asked to end. The started program would stay start pending.
[[noreturn]] void undoStart(const SharedHandle& service, const Interrupted& interrupted, std::uint32_t process) {
    ServiceStatus status;
    platform::ServiceManager& services = platform::serviceManager();
    const bool known = services.queryStatus(service.get(), status) == 0;
    const bool isStarting = known && status.currentState == platform::kServiceStartPending;
    const ErrorCode error = isStarting ? services.endService(service.get()) : platform::errorSuccess;
    if (status.processId != 0) process = status.processId;
    const std::string name = process == 0 ? "the program that was starting" : "its process " + std::to_string(process);
    std::string reason = "interrupted; " + name + " was ended";
    if (error != 0) reason = "interrupted; " + name + " could not be ended: " + errorText(error);
    if (known && !isStarting && status.currentState != platform::kServiceStopped) {
        reason = "interrupted; the service is " + stateWord(status.currentState) + ", " + name;
    }
    throw Interrupted(interrupted.task(), reason, interrupted.request());
}

}  // namespace

std::string startService(const Manager& manager, const Task& task, const std::vector<std::string>& arguments,
                         const Patience& patience) {
    constexpr std::uint32_t kAccess = platform::kServiceStart | platform::kServiceStop | platform::kServiceQueryStatus;
    const SharedHandle service = manager.open(task, kAccess);
    ErrorCode error = 0;
    Wait wait(task, service, patience, [] { platform::serviceManager().cancelStarts(); });
    try {
        for (;;) {
            wait.call([&] { return error = platform::serviceManager().startService(service.get(), arguments); });
            if (error == 0) break;
            if (error != platform::errorServiceAlreadyRunning) failToStart(manager, task, error);
            const std::uint32_t state = wait.queryStatus().currentState;
            const bool isEnding = state == platform::kServiceStopped || state == platform::kServiceStopPending;
            if (!isEnding && patience.waits) awaitRunning(wait, task);
            if (!isEnding) return "is already " + stateWord(wait.queryStatus().currentState);
            if (!patience.waits) throw Failure(task, error, "its last run is still ending");
            wait.pause();
        }
        if (!patience.waits) return "is starting";
        awaitRunning(wait, task);
        return "started";
    } catch (const Interrupted& interrupted) {
        const bool isOurs = error != platform::errorServiceAlreadyRunning;
        if (!isOurs) throw;
        undoStart(service, interrupted, wait.process());
    }
}

namespace {

std::string askToStop(const Manager& manager, const Task& task, const SharedHandle& service, const Patience& patience) {
    Wait wait(task, service, patience);
    for (;;) {
        const ErrorCode error = wait.call([=] {
            ServiceStatus answer;
            return platform::serviceManager().control(service.get(), platform::kServiceControlStop, answer);
        });
        if (error == 0) break;
        if (error == platform::errorServiceNotActive) return "is not running";
        if (error != platform::errorServiceCannotAcceptControl) failToChange(manager, task, error);
        const std::uint32_t state = wait.queryStatus().currentState;
        if (state == platform::kServiceStopPending || state == platform::kServiceStopped) break;
        if (!patience.waits) throw Failure(task, error);
        wait.pause();
    }
    if (!patience.waits) return "is stopping";
    awaitStopped(wait, task);
    return "stopped";
}

}  // namespace

std::string stopService(const Manager& manager, const Task& task, const Patience& patience) {
    const SharedHandle service = manager.open(task, platform::kServiceStop | platform::kServiceQueryStatus);
    try {
        return askToStop(manager, task, service, patience);
    } catch (const Failure& failure) {
        const bool doesNotStop = failure.exitCode() == kExitTimedOut || failure.exitCode() == kExitFailed;
        if (!patience.forces || !doesNotStop) throw;
    }
    const ErrorCode error = platform::serviceManager().endService(service.get());
    if (error == platform::errorServiceNotActive) return "stopped";
    require(task, error);
    return "killed";
}

}  // namespace kestsc
