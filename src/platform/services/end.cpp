// Ending the process of a service that has not reached the dispatcher, or that does not stop.
#include "platform/clock.h"
#include "platform/deadline.h"
#include "platform/services/client.h"
#include "platform/thread.h"

namespace KestSupport::platform {
namespace {

using Holder = StatusRecord::Holder;

constexpr std::uint32_t kPatience = 1000;       // milliseconds between a request to end and a kill
constexpr std::uint32_t kEndCheckInterval = 5;  // milliseconds

// Returns 0 for a program that has ended. The program of a start is detached, so a process with its number that is not
// detached has received the number after the program ended.
std::uint32_t existingProgram(std::uint32_t program) {
    if (program == 0) return 0;
    const Result<bool> detached = isDetached(program);
    return detached && !*detached ? 0 : program;
}

}  // namespace

Result<bool> endUnansweredStart(const ServiceDatabase& database, const std::string& name) {
    const ServiceFiles files(database.folder(), name);
    const Deadline killTime = Deadline::after(kPatience);
    const Deadline deadline = Deadline::after(kPatience + serviceTimeout());
    bool ended = false;
    for (std::optional<EndMode> sent;;) {
        const Result<ServiceFiles::Activity> activity = files.activity();
        if (!activity) return activity.failure();
        const std::uint32_t program = existingProgram(activity->program);
        if (program == 0) break;
        if (deadline.hasPassed()) return Failure{errorServiceRequestTimeout};
        const EndMode wanted = killTime.hasPassed() ? EndMode::kill : EndMode::request;
        if (sent != wanted) {
            if (const ErrorCode error = endProgram(program, wanted); error != 0) return Failure{error};
        }
        sent = wanted;
        ended = true;
        sleepThread(kEndCheckInterval);
    }
    if (ended) removeIfDeleted(database.folder(), name);
    return ended;
}

ErrorCode noteEnd(const ServiceDatabase& database, const std::string& name, const ServiceRun& end) {
    const Result<SystemHandle> lock = lockDatabase(database.folder());
    if (!lock) return lock.failure();
    const ServiceFiles files(database.folder(), name);
    const Result<bool> active = files.isActive();
    Result<ServiceRun> run = files.run();
    if (!active || !run) return active ? run.error() : active.error();
    if (*active || run->processId != end.processId) return 0;
    if (run->ended == 0) run->ended = calendarTime();
    run->endRequested = run->endRequested || end.endRequested;
    if (!run->exitCode) run->exitCode = end.exitCode;
    const Result<Folder> folder = files.openFolder();
    return folder ? storeRun(*folder, *run) : folder.error();
}

ErrorCode endService(const ServiceDatabase& database, const std::string& name) {
    const ServiceFiles files(database.folder(), name);
    const Deadline deadline = Deadline::after(serviceTimeout());
    for (std::uint32_t killed = 0;;) {
        const Result<ServiceFiles::Activity> activity = files.activity();
        if (!activity) return activity.failure();
        if (activity->holder == Holder::none) {
            if (killed == 0) return errorServiceNotActive;
            // The service is ended also when the note cannot be stored.
            noteEnd(database, name, {.processId = killed, .endRequested = true});
            removeIfDeleted(database.folder(), name);
            return 0;
        }
        std::uint32_t process = existingProgram(activity->program);
        if (activity->holder == Holder::process) {
            const Result<ServiceStatus> status = files.status();
            if (!status) return status.failure();
            process = status->processId;
        }
        if (process == 0 && killed == 0) return errorServiceCannotAcceptControl;
        if (process != 0) {
            if (const ErrorCode error = endProgram(process, EndMode::kill); error != 0) return error;
            killed = process;
        }
        if (deadline.hasPassed()) return errorServiceRequestTimeout;
        sleepThread(kEndCheckInterval);
    }
}

}  // namespace KestSupport::platform
