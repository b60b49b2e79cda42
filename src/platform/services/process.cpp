// The phases of the process. A lock is that of the status record (status_record.h).
//
//   phase         begins in           handles                        locks              m_decided  m_over
//   accepted      accept              m_starter, m_reserved          starting           no         no
//   taken over    takeOver            also m_record and m_listener   starting, running  no         no
//   in service    the end of start    m_record, m_listener           running            yes        no
//   stopped       setStatus           m_listener                     none               any        yes
//   ended         the end of serve    none                           none               yes        yes
//
// A failed step of start closes the handles, sends its error to the starter and ends the dispatcher. A service may
// report that it is stopped before start has ended; the result of start is still success. A forked child is ended.
#include "platform/services/process.h"

#include <algorithm>
#include <initializer_list>

#include "platform/clock.h"
#include "platform/deadline.h"
#include "platform/services/database.h"
#include "platform/thread.h"

namespace KestSupport::platform {
namespace {

constexpr std::size_t kMostConnections = 16;
static_assert(kMostConnections + 2 <= kMostAwaited);
constexpr std::uint32_t kAttentionInterval = 100;  // milliseconds

// The bit of the accepted controls that a control needs; 0 for one that every service takes.
std::uint32_t acceptanceOf(std::uint32_t control) {
    switch (control) {
        case kServiceControlStop:
            return kServiceAcceptStop;
        case kServiceControlPause:
        case kServiceControlContinue:
            return kServiceAcceptPauseContinue;
        case kServiceControlParameterChange:
            return kServiceAcceptParameterChange;
        default:
            return 0;
    }
}

// Returns why the control is not delivered to a service with this status; 0 when it is.
//
//   state            needs an accepted bit              others (interrogate, user)
//   stopped          errorServiceNotActive              errorServiceNotActive
//   start pending    delivered with the bit, otherwise  errorServiceCannotAcceptControl
//                    errorServiceCannotAcceptControl
//   stop pending     errorServiceCannotAcceptControl    errorServiceCannotAcceptControl
//   any other        delivered with the bit, otherwise  delivered
//                    errorInvalidServiceControl
ErrorCode refusalOf(const ServiceStatus& status, std::uint32_t control) {
    const std::uint32_t needed = acceptanceOf(control);
    const bool accepted = needed == 0 || (status.controlsAccepted & needed) != 0;
    if (status.currentState == kServiceStopped) return errorServiceNotActive;
    if (status.currentState == kServiceStopPending) return errorServiceCannotAcceptControl;
    if (status.currentState == kServiceStartPending && (needed == 0 || !accepted)) {
        return errorServiceCannotAcceptControl;
    }
    return accepted ? errorSuccess : errorInvalidServiceControl;
}

}  // namespace

struct ServiceProcess::MainCall {
    std::shared_ptr<ServiceProcess> process;
    ServiceManager::ServiceMain main;
};

// A forked child shares the locks until it executes a program or closes their handles. Without these handlers a service
// that is killed would seem to run for as long as its child.
struct ServiceProcess::ForkHandlers {
    static ErrorCode install(ServiceProcess& process) {
        s_process = &process;
        return installForkHandlers(beforeFork, afterForkInParent, inChild);
    }

  private:
    static void beforeFork() { s_process->m_lock.lock(); }
    static void afterForkInParent() { s_process->m_lock.unlock(); }
    static void inChild() {
        for (SystemHandle* const each : std::initializer_list<SystemHandle*>{
                 &s_process->m_starter, &s_process->m_reserved, &s_process->m_listener, &s_process->m_record})
            each->close();
        s_process->m_over = true;
        s_process->m_lock.unlock();
    }

    // A process becomes a service only once, and its object is not destroyed.
    inline static ServiceProcess* s_process = nullptr;
};

Result<std::shared_ptr<ServiceProcess>> ServiceProcess::accept() {
    // Standard input may be another program's channel, so no message is taken from it unless it begins with the mark.
    if (!Channel::standardInputBeginsWith(encodeStart({}).substr(0, 4))) {
        return Failure{errorFailedServiceControllerConnect};
    }
    Result<Channel> starter = Channel::fromStandardInput();
    if (!starter) return starter.failure();
    Result<Delivery> delivery = starter->receiveDelivery(kServiceStartLimit);
    if (!delivery) return delivery.failure();
    auto texts = decodeStart(delivery->message);
    if (!texts) return Failure{errorFailedServiceControllerConnect};
    // The service and the programs that it starts do not read from the channel.
    Channel::detachStandardInput();
    return std::make_shared<ServiceProcess>(std::move(*texts), std::move(*starter),
                                            StatusRecord(std::move(delivery->file)), std::move(delivery->folder));
}

ServiceProcess::ServiceProcess(std::vector<std::string> arguments, Channel starter, StatusRecord reserved,
                               Folder folder)
    : m_name(arguments.front()),
      m_arguments(std::move(arguments)),
      m_folder(std::move(folder)),
      m_starter(std::move(starter)),
      m_reserved(std::move(reserved)) {}

ErrorCode ServiceProcess::start(ServiceManager::ServiceMain main) {
    ErrorCode error = ForkHandlers::install(*this);
    if (error == 0) error = takeOver();
    if (error == 0) error = launch(main);
    if (error == 0) awaitFirstReport();
    const std::lock_guard guard(m_lock);
    m_decided = true;
    if (error != 0) giveUpRecord();
    // The service runs also when the starter has ended, so the result of send does not matter.
    m_reserved.release(StatusRecord::Lock::starting);
    m_starter.send(encodeReply({error, m_status}));
    m_reserved.close();
    m_starter.close();
    return error;
}

// Closing alone would not release a lock of which a forked process has a handle.
void ServiceProcess::giveUpRecord() noexcept {
    if (m_record.isOpen()) m_record.release(StatusRecord::Lock::running);
    m_record.close();
}

// Makes this process the service.
ErrorCode ServiceProcess::takeOver() {
    const std::lock_guard guard(m_lock);
    Result<File> record = m_folder.openFile(ServiceFiles::kRecord, FileUse::readAndWrite);
    if (!record) return record.failure();
    m_record = StatusRecord(std::move(*record));
    if (const ErrorCode error = m_record.take(StatusRecord::Lock::running); error != 0) return error;
    m_status.currentState = kServiceStartPending;
    m_status.processId = currentProcess();
    if (const ErrorCode error = m_record.store(m_status); error != 0) return error;
    Result<WakeUp> wakeUp = WakeUp::make();
    if (!wakeUp) return wakeUp.failure();
    m_wakeUp = std::move(*wakeUp);
    m_run.processId = m_status.processId;
    m_run.started = calendarTime();
    if (const ErrorCode error = storeRun(m_folder, m_run); error != 0) return error;
    m_output.begin(m_folder);
    m_folder.removeFile(ServiceFiles::kSocket);  // a process that was killed left it
    m_folder.removeFile(ServiceFiles::kFailure);
    Result<Listener> listener = Listener::make(m_folder, ServiceFiles::kSocket);
    if (!listener) return listener.failure();
    m_listener = std::move(*listener);
    m_spare = openNullDevice();
    return 0;
}

ErrorCode ServiceProcess::launch(ServiceManager::ServiceMain main) {
    auto call = std::make_unique<MainCall>(MainCall{shared_from_this(), main});
    WaitHandle thread = nullptr;
    if (!createThread(runMain, call.get(), thread)) return errorServiceNoThread;
    static_cast<void>(call.release());
    m_main = OwnedHandle(thread);
    return 0;
}

// Most services run within milliseconds, so the result of the start mostly has the state running already.
void ServiceProcess::awaitFirstReport() {
    const Deadline deadline = Deadline::after(kAttentionInterval);
    for (;;) {
        const std::uint32_t left = deadline.rest();
        {
            const std::lock_guard guard(m_lock);
            if (left == 0 || m_over || m_status.currentState != kServiceStartPending) return;
        }
        Awaited awaited{&m_wakeUp};
        awaitInput({&awaited, 1}, left);
        m_wakeUp.take();
    }
}

std::uint32_t ServiceProcess::runMain(void* argument) {
    const std::unique_ptr<MainCall> call(static_cast<MainCall*>(argument));
    bool threw = false;
    try {
        call->main(call->process->m_arguments);
    } catch (...) {
        threw = true;
    }
    call->process->endOfMain(threw);
    return 0;
}

void ServiceProcess::endOfMain(bool threw) {
    ServiceStatus status;
    {
        const std::lock_guard guard(m_lock);
        if (m_over || (!threw && m_handler != nullptr)) return;
        status = m_status;
    }
    status.currentState = kServiceStopped;
    status.exitCode = threw ? errorExceptionInService : errorProcessAborted;
    setStatus(status);
}

void ServiceProcess::setHandler(ServiceManager::ControlHandler handler) {
    const std::lock_guard guard(m_lock);
    m_handler = handler;
}

ErrorCode ServiceProcess::setStatus(const ServiceStatus& status) {
    if (status.currentState < kServiceStopped || status.currentState > kServicePaused) return errorInvalidParameter;
    const std::lock_guard guard(m_lock);
    if (m_over) return errorInvalidHandle;
    m_stopUnreported = false;
    write(status);
    if (status.currentState != kServiceStopped) {
        if (m_unwritten || !m_decided) m_wakeUp.signal();
        return 0;
    }
    m_run.ended = calendarTime();
    storeRun(m_folder, m_run);  // without it, the time of the end is not known
    // The listener's name first: after the lock is released, another process may become the service and use that name.
    m_folder.removeFile(ServiceFiles::kSocket);
    giveUpRecord();
    m_over = true;
    m_wakeUp.signal();
    return 0;
}

ErrorCode ServiceProcess::setFailureText(const std::string& text) {
    const std::lock_guard guard(m_lock);
    if (m_over) return errorInvalidHandle;
    const Result<File> file = m_folder.openFile(ServiceFiles::kFailure, FileUse::replace);
    if (!file) return file.failure();
    return file->write(std::string_view(text).substr(0, ServiceFiles::kFailureLimit));
}

void ServiceProcess::write(const ServiceStatus& status) {
    const std::uint32_t processId = m_status.processId;
    m_status = status;
    m_status.processId = processId;
    m_unwritten = m_record.store(m_status) != 0;
}

void ServiceProcess::writeState(std::uint32_t state) {
    ServiceStatus status = m_status;
    status.currentState = state;
    write(status);
}

bool ServiceProcess::requestStop() {
    const std::lock_guard guard(m_lock);
    const bool starting = m_status.currentState == kServiceStartPending;
    const bool ending = m_over || m_status.currentState == kServiceStopPending;
    if (!starting && !ending && (m_status.controlsAccepted & kServiceAcceptStop) == 0) return false;
    m_stopRequested = !ending;
    m_wakeUp.signal();
    return true;
}

bool ServiceProcess::isOver() {
    const std::lock_guard guard(m_lock);
    return m_over;
}

bool ServiceProcess::needsAttention() {
    const std::lock_guard guard(m_lock);
    return m_unwritten || m_stopRequested;
}

// Tries again to write a record, such as to a full disk, and to stop a service that was starting.
void ServiceProcess::attend() {
    bool stop = false;
    {
        const std::lock_guard guard(m_lock);
        if (m_over) return;
        if (m_unwritten) write(ServiceStatus(m_status));
        stop = m_stopRequested && refusalOf(m_status, kServiceControlStop) != errorServiceCannotAcceptControl;
        if (stop || m_status.currentState == kServiceStopPending) m_stopRequested = false;
    }
    if (stop) deliver(kServiceControlStop, false);
}

void ServiceProcess::serve() {
    std::vector<Awaited> awaited;
    while (!isOver()) {
        awaited = {{&m_wakeUp}, {&m_listener}};
        for (const Channel& each : m_connections)
            awaited.push_back({&each});
        const std::uint32_t timeout = needsAttention() ? kAttentionInterval : kInfinite;
        if (awaitInput(awaited, std::min(timeout, m_output.look(m_folder))) != 0) {
            sleepThread(kAttentionInterval);
            continue;
        }
        m_wakeUp.take();
        attend();
        for (std::size_t i = awaited.size(); i-- > 2;) {
            if (!awaited[i].ready) continue;
            const auto connection = m_connections.begin() + static_cast<std::ptrdiff_t>(i - 2);
            answer(*connection);
            m_connections.erase(connection);
        }
        if (awaited[1].ready) acceptConnection();
    }
    m_connections.clear();
    {
        const std::lock_guard guard(m_lock);
        m_listener.close();
    }
    // The process is about to end, and main should return before the objects that it uses are destroyed.
    waitForOne(m_main.get(), kServiceMainPatience);
    m_main.reset();
    // A service that was marked for deletion is removed once it is stopped, and there may be no other process for that.
    const Result<Folder> database = m_folder.openParent();
    if (database) removeIfDeleted(*database, m_name);
}

void ServiceProcess::acceptConnection() {
    // The oldest connection has sent nothing yet, so it is closed to make room.
    if (m_connections.size() == kMostConnections) m_connections.erase(m_connections.begin());
    Result<Channel> connection = m_listener.accept();
    if (connection) {
        m_connections.push_back(std::move(*connection));
        return;
    }
    if (connection.error() != errorTooManyOpenFiles) return;
    // A service that has used up its handles must still be stoppable.
    m_spare.close();
    connection = m_listener.accept();
    if (!connection) {
        sleepThread(kAttentionInterval);
        return;
    }
    answer(*connection);
    connection->close();
    m_spare = openNullDevice();
}

void ServiceProcess::answer(const Channel& connection) {
    constexpr std::uint32_t kPatience = 1000;  // milliseconds
    const Result<std::string> message = connection.receive(kPatience, kServiceRequestSize + 1);
    if (!message) return;
    const auto control = decodeRequest(*message);
    if (!control) return;
    connection.send(
        encodeReply(connection.isPeerAllowed() ? deliver(*control, true) : ServiceReply{errorAccessDenied, {}}));
}

ServiceReply ServiceProcess::deliver(std::uint32_t control, bool byClient) {
    ServiceManager::ControlHandler handler = nullptr;
    std::uint32_t before = 0;
    {
        const std::lock_guard guard(m_lock);
        handler = m_handler;
        const ErrorCode refusal = handler == nullptr ? errorServiceCannotAcceptControl : refusalOf(m_status, control);
        if (refusal != 0) return {refusal, m_status};
        // The service is stop pending from now on, even before it reports that.
        before = m_status.currentState;
        m_stopUnreported = control == kServiceControlStop;
        if (m_stopUnreported) {
            writeState(kServiceStopPending);
            m_run.endRequested = byClient;
        }
    }
    ServiceReply reply;
    try {
        handler(control);
    } catch (...) {
        reply.error = errorExceptionInService;
    }
    const std::lock_guard guard(m_lock);
    // A stop that failed has no effect: the next request tries again.
    if (reply.error != 0 && m_stopUnreported && !m_over) {
        writeState(before);
        m_run.endRequested = false;
    }
    m_stopUnreported = false;
    reply.status = m_status;
    return reply;
}

}  // namespace KestSupport::platform
