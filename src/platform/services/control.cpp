// Sending a control to a service's process.
#include <algorithm>
#include <charconv>
#include <cstdlib>

#include "platform/deadline.h"
#include "platform/services/channel.h"
#include "platform/services/client.h"
#include "platform/services/messages.h"
#include "platform/thread.h"

namespace KestSupport::platform {
namespace {

// Returns errorDependentServicesRunning when a service that depends on this one is not stopped. A service that cannot
// be read counts as one without dependencies.
ErrorCode checkDependents(const ServiceDatabase& database, const std::string& name) {
    const Result<std::vector<std::string>> folders = database.folder().folders();
    if (!folders) return folders.failure();
    for (const std::string& folder : *folders) {
        const ServiceFiles files = ServiceFiles::inFolder(database.folder(), folder);
        const Result<StoredService> service = files.read();
        if (!service) continue;
        const std::vector<std::string> needed = dependencyNames(service->dependencies);
        if (std::find(needed.begin(), needed.end(), name) == needed.end()) continue;
        const Result<bool> active = files.isActive();
        if (!active) return active.failure();
        if (*active) return errorDependentServicesRunning;
    }
    return 0;
}

Result<ServiceReply> exchange(const ServiceFiles& files, std::uint32_t control, std::uint32_t timeout, bool& sent) {
    const Result<Folder> folder = files.openFolder();
    if (!folder) return folder.failure();
    const Result<Channel> connection = Channel::connect(*folder, ServiceFiles::kSocket, timeout);
    if (!connection) return connection.failure();
    if (const ErrorCode error = connection->send(encodeRequest(control)); error != 0) return Failure{error};
    sent = true;
    const Result<std::string> message = connection->receive(timeout, kServiceReplySize + 1);
    if (!message) return message.failure();
    const auto reply = decodeReply(*message);
    if (!reply) return Failure{errorInvalidData};
    return *reply;
}

// Returns why a service in this state receives no control; 0 when it does.
ErrorCode refusalOf(std::uint32_t state) {
    if (state == kServiceStopped) return errorServiceNotActive;
    return state == kServiceStartPending ? errorServiceCannotAcceptControl : errorSuccess;
}

bool hasStatus(ErrorCode error) {
    return error == 0 || error == errorServiceNotActive || error == errorServiceCannotAcceptControl ||
           error == errorInvalidServiceControl;
}

}  // namespace

std::uint32_t serviceTimeout() {
    constexpr std::uint32_t kUsual = 30'000;
    constexpr std::uint32_t kMost = 24U * 60 * 60 * 1000;
    const char* const text = std::getenv("KEST_SERVICE_TIMEOUT");
    if (text == nullptr) return kUsual;
    std::uint32_t value = 0;
    const std::string_view digits = text;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    const bool whole = error == std::errc() && end == digits.data() + digits.size();
    return whole && value > 0 && value <= kMost ? value : kUsual;
}

ErrorCode controlService(const ServiceDatabase& database, const std::string& name, std::uint32_t control,
                         ServiceStatus& answer) {
    if (control == kServiceControlStop) {
        if (const ErrorCode error = checkDependents(database, name); error != 0) return error;
    }
    const ServiceFiles files(database.folder(), name);
    const std::uint32_t timeout = serviceTimeout();
    const Deadline deadline = Deadline::after(timeout);
    bool sent = false;
    Result<ServiceReply> reply = exchange(files, control, timeout, sent);
    // There is no listener: the process has ended, has reported that it is stopped, or does not listen yet.
    while (reply.error() == errorBrokenPipe) {
        const Result<ServiceStatus> status = files.status();
        if (!status) return status.failure();
        const Result<bool> ended =
            control == kServiceControlStop ? endUnansweredStart(database, name) : Result<bool>(false);
        if (!ended) return ended.failure();
        if (*ended) {
            const Result<ServiceStatus> later = files.status();
            const bool isGone = later.error() == errorServiceDoesNotExist;  // it was marked for deletion
            if (!later && !isGone) return later.failure();
            answer = isGone ? stoppedWith(errorProcessAborted) : *later;
            if (answer.currentState == kServiceStopped) return 0;
        }
        if (const ErrorCode refusal = refusalOf(status->currentState); refusal != 0) {
            answer = *status;
            return refusal;
        }
        if (sent || deadline.hasPassed()) return errorServiceRequestTimeout;
        sleepThread(1);
        reply = exchange(files, control, timeout, sent);
    }
    if (reply.error() == errorFileNotFound) return errorServiceDoesNotExist;
    if (!reply) return reply.failure();
    if (hasStatus(reply->error)) answer = reply->status;
    return reply->error;
}

}  // namespace KestSupport::platform
