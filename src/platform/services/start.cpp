// Starting a service: first the services that it depends on, then its process, up to the dispatcher.
#include <algorithm>
#include <atomic>

#include "platform/clock.h"
#include "platform/deadline.h"
#include "platform/process.h"
#include "platform/services/channel.h"
#include "platform/services/client.h"
#include "platform/services/messages.h"
#include "platform/services/output.h"
#include "platform/start_order.h"
#include "platform/thread.h"

namespace KestSupport::platform {
namespace {

std::atomic<bool> g_cancelled{false};

// The start of one service. After reserve has succeeded, no other thread or process starts the service while the object
// exists. Each way out leaves a correct record.
class ServiceStart {
  public:
    ServiceStart(const ServiceDatabase& database, const std::string& name)
        : m_database(database), m_name(name), m_files(database.folder(), name) {}
    ServiceStart(const ServiceStart&) = delete;
    ServiceStart& operator=(const ServiceStart&) = delete;
    ~ServiceStart() {
        if (!m_reserved) return;
        if (!m_running) m_record.release(StatusRecord::Lock::starting);
        m_record.close();
        if (!m_running) removeIfDeleted(m_database.folder(), m_name);
    }

    /// Checks that the service can be started, and excludes other starts of it.
    ErrorCode reserve() {
        if (!m_database.isOurs()) return errorInvalidServiceAccount;
        const Result<SystemHandle> lock = lockDatabase(m_database.folder());
        if (!lock) return lock.failure();
        Result<StoredService> service = m_files.read();
        if (!service) return service.failure();
        m_service = std::move(*service);
        if (m_service.deleted) return errorServiceMarkedForDelete;
        if (m_service.startType == kServiceDisabled) return errorServiceDisabled;
        Result<StatusRecord> record = m_files.createRecord();
        if (!record) return record.failure();
        m_record = std::move(*record);
        if (const ErrorCode error = m_record.take(StatusRecord::Lock::starting); error != 0) return error;
        m_reserved = true;
        const Result<StatusRecord::Holder> holder = m_record.holder();
        if (!holder) return holder.failure();
        return *holder == StatusRecord::Holder::none ? errorSuccess : errorServiceAlreadyRunning;
    }

    const StoredService& service() const { return m_service; }

    /// Runs the program, and returns when it has reached the dispatcher, or has failed to.
    ErrorCode run(const std::vector<std::string>& arguments) {
        if (g_cancelled) return errorProcessAborted;
        ServiceStatus status;
        status.serviceType = m_service.type;
        status.currentState = kServiceStartPending;
        if (const ErrorCode error = m_record.store(status); error != 0) return error;
        ServiceRun run;
        run.started = calendarTime();
        const ErrorCode error = launch(arguments, run.processId);
        m_running = error == 0;
        if (m_running) return 0;
        run.ended = calendarTime();
        if (const Result<Folder> folder = m_files.openFolder()) storeRun(*folder, run);
        status.currentState = kServiceStopped;
        status.exitCode = error;
        m_record.store(status);
        return error;
    }

  private:
    // Standard input of the program is the channel. The message in it has the name, the arguments, the service's
    // folder, and the record with the lock of this start, so that the start survives the end of this process.
    ErrorCode launch(const std::vector<std::string>& arguments, std::uint32_t& processId) {
        std::vector<std::string> texts{m_name};
        texts.insert(texts.end(), arguments.begin(), arguments.end());
        const std::string message = encodeStart(texts);
        if (message.size() > kServiceStartLimit) return errorInvalidParameter;

        Result<std::pair<Channel, Channel>> ends = Channel::makePair();
        if (!ends) return ends.failure();
        auto& [ours, theirs] = *ends;
        const Result<Folder> folder = m_files.openFolder();
        if (!folder) return folder.failure();
        if (const ErrorCode error = ours.send(message, m_record, *folder); error != 0) return error;
        const Result<File> output = openServiceOutput(*folder);
        if (!output) return output.failure();
        ProcessRequest request;
        request.commandLine = quoteProgram(m_service.commandLine);
        request.workingDirectory = m_database.stateDirectory();
        // The service reports to its manager only, not to the supervisor of the program that starts it.
        request.environment = {{"KEST_STATE_DIR", m_database.stateDirectory()}, {"NOTIFY_SOCKET", ""}};
        request.standardHandles = {theirs.native(), output->native(), output->native()};
        request.detached = true;
        request.usualSurroundings = true;
        request.announce = [this](std::uint32_t id) { m_record.setProgram(id); };
        Process process;
        if (const ErrorCode error = process.start(request); error != 0) return error;
        processId = process.id();
        theirs.close();
        return awaitDispatcher(ours, process);
    }

    static ErrorCode awaitDispatcher(const Channel& channel, Process& process) {
        constexpr std::uint32_t kLongestStep = 100;  // milliseconds until cancelStarts is noticed
        ErrorCode error = errorServiceRequestTimeout;
        for (std::uint32_t left = serviceTimeout(); error == errorServiceRequestTimeout && left > 0 && !g_cancelled;) {
            const std::uint32_t step = std::min(left, kLongestStep);
            const Result<std::string> message = channel.receive(step, kServiceReplySize + 1);
            if (message) {
                const auto reply = decodeReply(*message);
                return reply ? reply->error : errorInvalidData;
            }
            error = message.error();
            left -= step;
        }
        if (error == errorBrokenPipe || g_cancelled) error = errorProcessAborted;
        // Ends the programs that a script has started too, also when the script has ended, unless another process may
        // have received its number.
        const bool isGroupOurs = !process.wait(0) || error == errorProcessAborted || !isDetached(process.id());
        if (isGroupOurs) endProgram(process.id(), EndMode::kill);
        constexpr std::uint32_t kPatience = 1000;  // milliseconds
        process.wait(kPatience);
        return error;
    }

    const ServiceDatabase& m_database;
    const std::string m_name;
    const ServiceFiles m_files;
    StoredService m_service;
    StatusRecord m_record;
    bool m_reserved = false;
    bool m_running = false;
};

// Waits while a service is starting. Returns whether it runs.
bool awaitRunning(const ServiceFiles& files) {
    const Deadline deadline = Deadline::after(serviceTimeout());
    for (;;) {
        const Result<ServiceStatus> status = files.status();
        if (!status) return false;
        const std::uint32_t state = status->currentState;
        if (state != kServiceStartPending && state != kServiceContinuePending) {
            return state != kServiceStopped && state != kServiceStopPending;
        }
        if (deadline.hasPassed() || g_cancelled) return false;
        sleepThread(1);
    }
}

bool isStopped(const ServiceFiles& files) {
    const Result<ServiceStatus> status = files.status();
    return !status || status->currentState == kServiceStopped;
}

// Starts a service that another one depends on. The services that it depends on itself run already.
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
        if (name == service.name) {
            needed = dependencyNames(service.dependencies);
            return true;
        }
        const Result<StoredService> other = ServiceFiles(database.folder(), name).read();
        if (other) needed = dependencyNames(other->dependencies);
        return bool(other);
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
        const Result<StoredService> service = files.read();
        if (!service && service.error() != errorServiceDoesNotExist) unreadable = service.error();
        // The dependencies of a service that runs are not started.
        if (service && isStopped(files)) needed = dependencyNames(service->dependencies);
        return bool(service);
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
