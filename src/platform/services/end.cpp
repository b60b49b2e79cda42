// Ending the process of a service that does not end on its own: one that has not reached the dispatcher, or that does
// not stop.
#include <signal.h>
#include <unistd.h>

#include <cerrno>

#include "platform/clock.h"
#include "platform/services/client.h"
#include "platform/linux/linux_service_socket.h"
#include "platform/thread.h"

namespace KestSupport::platform {
namespace {

using Holder = RecordLock::Holder;

constexpr std::uint32_t kPatience = 1000;  // milliseconds from a request to end to a kill
constexpr std::uint32_t kLookForEndAfter = 5;

// Sends the signal to the group that the process is in, which a service has to itself. A group outlives its leader.
ErrorCode signalGroup(std::uint32_t id, int number) {
    const auto process = static_cast<pid_t>(id);
    const pid_t group = ::getpgid(process);
    const bool isOurs = group == ::getpgrp();
    const pid_t target = isOurs ? process : group > 1 ? -group : -process;
    return ::kill(target, number) == 0 || errno == ESRCH ? 0 : errorFromErrno(errno);
}

// The process of a start that has not reached the dispatcher; 0 when there is none. It leads a session: a process of
// that number that leads none is another one, whose number was given to it after the first had ended.
ErrorCode unansweredProgram(const ServiceFiles& files, std::uint32_t& program) {
    Holder holder{};
    if (const ErrorCode error = files.holder(holder, program); error != 0 || program == 0) return error;
    const pid_t session = ::getsid(static_cast<pid_t>(program));
    if (session >= 0 && session != static_cast<pid_t>(program)) program = 0;
    return 0;
}

}  // namespace

ErrorCode endUnansweredStart(const ServiceDatabase& database, const std::string& name, bool& ended) {
    const ServiceFiles files(database.folder(), name);
    std::uint32_t program = 0;
    const std::int64_t begin = steadyTime();
    ended = false;
    for (int sent = 0;;) {
        if (const ErrorCode error = unansweredProgram(files, program); error != 0) return error;
        if (program == 0) break;
        const std::int64_t passed = (steadyTime() - begin) / 1'000'000;
        if (passed > kPatience + std::int64_t{serviceTimeout()}) return errorServiceRequestTimeout;
        const int wanted = passed < kPatience ? SIGTERM : SIGKILL;
        if (sent != wanted) {
            if (const ErrorCode error = signalGroup(program, wanted); error != 0) return error;
        }
        sent = wanted;
        ended = true;
        sleepThread(kLookForEndAfter);
    }
    if (ended) removeIfDeleted(database.folder(), name);
    return 0;
}

ErrorCode endService(const ServiceDatabase& database, const std::string& name) {
    const ServiceFiles files(database.folder(), name);
    const std::int64_t end = steadyTime() + std::int64_t{serviceTimeout()} * 1'000'000;
    for (bool killed = false;;) {
        ServiceStatus status;
        Holder holder{};
        std::uint32_t process = 0;
        if (const ErrorCode error = files.holder(holder, process); error != 0) return error;
        if (holder == Holder::none) {
            if (killed) removeIfDeleted(database.folder(), name);
            return killed ? errorSuccess : errorServiceNotActive;
        }
        if (holder == Holder::starter) {
            if (const ErrorCode error = unansweredProgram(files, process); error != 0) return error;
        } else {
            if (const ErrorCode error = files.status(status); error != 0) return error;
            process = status.processId;
        }
        if (process == 0 && !killed) return errorServiceCannotAcceptControl;
        if (process != 0) {
            if (const ErrorCode error = signalGroup(process, SIGKILL); error != 0) return error;
            killed = true;
        }
        if (steadyTime() > end) return errorServiceRequestTimeout;
        sleepThread(kLookForEndAfter);
    }
}

}  // namespace KestSupport::platform
