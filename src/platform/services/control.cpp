// Sending a control to a service's process.
#include <algorithm>

#include "platform/clock.h"
#include "platform/services/client.h"
#include "platform/services/messages.h"
#include "platform/linux/linux_service_socket.h"
#include "platform/thread.h"

namespace KestSupport::platform {
namespace {

// Whether a service that depends on this one is not stopped. What cannot be read depends on nothing.
ErrorCode checkDependents(const ServiceDatabase& database, const std::string& name) {
    std::vector<std::string> folders;
    if (const ErrorCode error = database.list(folders); error != 0) return error;
    for (const std::string& folder : folders) {
        const ServiceFiles files = ServiceFiles::inFolder(database.folder(), folder);
        StoredService service;
        if (const ErrorCode error = files.read(service); error != 0) continue;
        const std::vector<std::string> needed = dependencyNames(service.dependencies);
        if (std::find(needed.begin(), needed.end(), name) == needed.end()) continue;
        bool active = false;
        if (const ErrorCode error = files.isActive(active); error != 0) return error;
        if (active) return errorDependentServicesRunning;
    }
    return 0;
}

ErrorCode exchange(const ServiceFiles& files, std::uint32_t control, std::uint32_t timeout, ServiceReply& reply,
                   bool& sent) {
    Descriptor folder;
    if (const ErrorCode error = files.openFolder(folder); error != 0) return error;
    Descriptor connection;
    if (const ErrorCode error = connectTo(folder.get(), ServiceFiles::kSocket, timeout, connection); error != 0) {
        return error;
    }
    if (const ErrorCode error = sendMessage(connection.get(), encodeRequest(control)); error != 0) return error;
    sent = true;
    std::string message;
    if (const ErrorCode error = receiveMessage(connection.get(), timeout, kServiceReplySize + 1, message); error != 0) {
        return error;
    }
    const auto decoded = decodeReply(message);
    if (!decoded) return errorInvalidData;
    reply = *decoded;
    return 0;
}

// Why a service in this state gets no control; 0 when it may.
ErrorCode refusalOf(std::uint32_t state) {
    if (state == kServiceStopped) return errorServiceNotActive;
    return state == kServiceStartPending ? errorServiceCannotAcceptControl : errorSuccess;
}

bool tellsStatus(ErrorCode error) {
    return error == 0 || error == errorServiceNotActive || error == errorServiceCannotAcceptControl ||
           error == errorInvalidServiceControl;
}

}  // namespace

ErrorCode controlService(const ServiceDatabase& database, const std::string& name, std::uint32_t control,
                         ServiceStatus& answer) {
    if (control == kServiceControlStop) {
        if (const ErrorCode error = checkDependents(database, name); error != 0) return error;
    }
    const ServiceFiles files(database.folder(), name);
    const std::uint32_t timeout = serviceTimeout();
    const std::int64_t end = steadyTime() + std::int64_t{timeout} * 1'000'000;
    ServiceReply reply;
    bool sent = false;
    ErrorCode error = exchange(files, control, timeout, reply, sent);
    // Nobody is there: the process has ended or has said its last word, or does not listen yet.
    while (error == errorBrokenPipe) {
        ServiceStatus status;
        if (const ErrorCode unknown = files.status(status); unknown != 0) return unknown;
        bool ended = false;
        if (control == kServiceControlStop) {
            if (const ErrorCode failed = endUnansweredStart(database, name, ended); failed != 0) return failed;
        }
        if (ended) {
            if (const ErrorCode unknown = files.status(answer); unknown != 0) return unknown;
            if (answer.currentState == kServiceStopped) return 0;
        }
        if (const ErrorCode refusal = refusalOf(status.currentState); refusal != 0) {
            answer = status;
            return refusal;
        }
        if (sent || steadyTime() > end) return errorServiceRequestTimeout;
        sleepThread(1);
        error = exchange(files, control, timeout, reply, sent);
    }
    if (error == errorFileNotFound) return errorServiceDoesNotExist;
    if (error != 0) return error;
    if (tellsStatus(reply.error)) answer = reply.status;
    return reply.error;
}

}  // namespace KestSupport::platform
