// Starting a service: what it depends on, then its own process, up to the dispatcher.
#include <fcntl.h>
#include <signal.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>

#include "platform/clock.h"
#include "platform/linux/linux_call.h"
#include "platform/services/client.h"
#include "platform/services/messages.h"
#include "platform/linux/linux_service_socket.h"
#include "platform/process.h"
#include "platform/thread.h"

namespace KestSupport::platform {
namespace {

std::atomic<bool> g_cancelled{false};

// The start of one service. While it lives no other thread or process starts the service, and its record is correct in
// every case.
class ServiceStart {
  public:
    ServiceStart(const ServiceDatabase& database, const std::string& name)
        : m_database(database), m_name(name), m_files(database.folder(), name) {}
    ServiceStart(const ServiceStart&) = delete;
    ServiceStart& operator=(const ServiceStart&) = delete;
    ~ServiceStart() {
        if (!m_reserved) return;
        if (!m_running) RecordLock::release(m_record.get(), RecordLock::kStarting);
        m_record.close();
        if (!m_running) removeIfDeleted(m_database.folder(), m_name);
    }

    /// Makes sure that it may be started, and that nobody else does.
    ErrorCode reserve() {
        if (!m_database.isOurs()) return errorInvalidServiceAccount;
        DatabaseLock lock;
        if (const ErrorCode error = lock.take(m_database.folder()); error != 0) return error;
        if (const ErrorCode error = m_files.read(m_service); error != 0) return error;
        if (m_service.deleted) return errorServiceMarkedForDelete;
        if (m_service.startType == kServiceDisabled) return errorServiceDisabled;
        if (const ErrorCode error = m_files.open(ServiceFiles::kRecord, O_RDWR | O_CREAT, m_record); error != 0) {
            return error;
        }
        if (const ErrorCode error = RecordLock::take(m_record.get(), RecordLock::kStarting); error != 0) return error;
        m_reserved = true;
        RecordLock::Holder holder{};
        if (const ErrorCode error = RecordLock::holder(m_record.get(), holder); error != 0) return error;
        if (holder == RecordLock::Holder::none) return 0;
        return errorServiceAlreadyRunning;
    }

    const StoredService& service() const { return m_service; }

    /// Runs the program, and returns when it has reached the dispatcher, or has failed to.
    ErrorCode run(const std::vector<std::string>& arguments) {
        if (g_cancelled) return errorProcessAborted;
        ServiceStatus status;
        status.serviceType = m_service.type;
        status.currentState = kServiceStartPending;
        if (const ErrorCode error = writeRecord(m_record.get(), status); error != 0) return error;
        const ErrorCode error = launch(arguments);
        m_running = error == 0;
        if (m_running) return 0;
        status.currentState = kServiceStopped;
        status.exitCode = error;
        writeRecord(m_record.get(), status);
        return error;
    }

  private:
    // The program's standard input is the channel, in which the name, the arguments, and two descriptors wait for its
    // dispatcher: the record with the lock of this start, which so outlives this process, and the service's folder.
    ErrorCode launch(const std::vector<std::string>& arguments) {
        std::vector<std::string> texts{m_name};
        texts.insert(texts.end(), arguments.begin(), arguments.end());
        const std::string message = encodeStart(texts);
        if (message.size() > kServiceStartLimit) return errorInvalidParameter;

        Descriptor ours;
        Descriptor theirs;
        Descriptor folder;
        if (const ErrorCode error = makeChannel(ours, theirs); error != 0) return error;
        if (const ErrorCode error = m_files.openFolder(folder); error != 0) return error;
        if (const ErrorCode error = sendMessage(ours.get(), message, {m_record.get(), folder.get()}); error != 0) {
            return error;
        }
        ProcessRequest request;
        request.commandLine = quoteProgram(m_service.commandLine);
        request.workingDirectory = m_database.stateDirectory();
        // The service reports to its manager alone, not to the supervisor of the program that starts it.
        request.environment = {{"KEST_STATE_DIR", m_database.stateDirectory()}, {"NOTIFY_SOCKET", ""}};
        request.standardHandles = {theirs.get(), kNullDevice, kNullDevice};
        request.detached = true;
        request.usualSurroundings = true;
        request.announce = [record = m_record.get()](std::uint32_t id) { RecordLock::setProgram(record, id); };
        Process process;
        if (const ErrorCode error = process.start(request); error != 0) return error;
        theirs.close();
        return awaitDispatcher(ours.get(), process);
    }

    static ErrorCode awaitDispatcher(int channel, Process& process) {
        constexpr std::uint32_t lookAgainAfter = 100;  // milliseconds, for cancelStarts
        std::string message;
        ErrorCode error = errorServiceRequestTimeout;
        for (std::uint32_t left = serviceTimeout(); error == errorServiceRequestTimeout && left > 0 && !g_cancelled;) {
            const std::uint32_t step = std::min(left, lookAgainAfter);
            error = receiveMessage(channel, step, kServiceReplySize + 1, message);
            left -= step;
        }
        if (error == 0) {
            const auto reply = decodeReply(message);
            return reply ? reply->error : errorInvalidData;
        }
        if (error == errorBrokenPipe || g_cancelled) error = errorProcessAborted;
        // It leads a group of its own; a script's programs end with it.
        constexpr std::uint32_t patience = 1000;  // milliseconds
        if (!process.wait(0)) ::kill(-static_cast<pid_t>(process.id()), SIGKILL);
        process.wait(patience);
        return error;
    }

    const ServiceDatabase& m_database;
    const std::string m_name;
    const ServiceFiles m_files;
    StoredService m_service;
    Descriptor m_record;
    bool m_reserved = false;
    bool m_running = false;
};

// Waits for a service that is starting.
bool awaitRunning(const ServiceFiles& files) {
    const std::int64_t end = steadyTime() + std::int64_t{serviceTimeout()} * 1'000'000;
    for (;;) {
        ServiceStatus status;
        if (files.status(status) != 0) return false;
        if (status.currentState != kServiceStartPending && status.currentState != kServiceContinuePending) {
            return status.currentState != kServiceStopped && status.currentState != kServiceStopPending;
        }
        if (steadyTime() > end || g_cancelled) return false;
        sleepThread(1);
    }
}

bool isStopped(const ServiceFiles& files) {
    ServiceStatus status;
    return files.status(status) != 0 || status.currentState == kServiceStopped;
}

// What another service needs; its own dependencies run.
bool ensureRunning(const ServiceDatabase& database, const std::string& name) {
    const ServiceFiles files(database.folder(), name);
    if (isStopped(files)) {
        ServiceStart start(database, name);
        ErrorCode error = start.reserve();
        if (error == 0) error = start.run({});
        if (error != 0 && error != errorServiceAlreadyRunning) return false;
    }
    return awaitRunning(files);
}

}  // namespace

void cancelStarts() noexcept {
    g_cancelled = true;
}

ErrorCode checkDependencies(const ServiceDatabase& database, const StoredService& service) {
    StartOrder order([&](const std::string& name, std::vector<std::string>& needed) {
        StoredService other;
        const StoredService& found = name == service.name ? service : other;
        if (&found == &other && ServiceFiles(database.folder(), name).read(other) != 0) return false;
        needed = dependencyNames(found.dependencies);
        return true;
    });
    order.add(service.name);
    return order.isCircular() ? errorCircularDependency : errorSuccess;
}

ErrorCode startService(const ServiceDatabase& database, const std::string& name,
                       const std::vector<std::string>& arguments) {
    ServiceStart start(database, name);
    if (const ErrorCode error = start.reserve(); error != 0) return error;
    ErrorCode unreadable = 0;
    StartOrder order([&](const std::string& each, std::vector<std::string>& needed) {
        if (each == name) {
            needed = dependencyNames(start.service().dependencies);
            return true;
        }
        const ServiceFiles files(database.folder(), each);
        StoredService service;
        const ErrorCode error = files.read(service);
        if (error != 0 && error != errorServiceDoesNotExist) unreadable = error;
        // What runs needs nothing any more.
        if (error == 0 && isStopped(files)) needed = dependencyNames(service.dependencies);
        return error == 0;
    });
    order.add(name);
    if (order.isCircular()) return errorCircularDependency;
    if (order.isIncomplete()) return unreadable == 0 ? errorServiceDependencyDeleted : errorServiceDependencyFail;
    for (const std::string& needed : order.order()) {
        if (needed != name && !ensureRunning(database, needed)) return errorServiceDependencyFail;
    }
    return start.run(arguments);
}

}  // namespace KestSupport::platform
