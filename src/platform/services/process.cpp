#include "platform/services/process.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "platform/clock.h"
#include "platform/linux/linux_call.h"
#include "platform/services/database.h"
#include "platform/linux/linux_service_socket.h"
#include "platform/thread.h"

namespace KestSupport::platform {
namespace {

constexpr std::size_t kMostConnections = 16;
constexpr std::uint32_t kAttentionInterval = 100;  // milliseconds
constexpr std::uint32_t kMainPatience = 1000;      // milliseconds

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

// Why a service with this status does not get the control; 0 when it does.
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

Descriptor openNothing() {
    return Descriptor(systemCall("open", [] { return ::open("/dev/null", O_RDWR | O_CLOEXEC); }));
}

}  // namespace

struct ServiceProcess::MainCall {
    std::shared_ptr<ServiceProcess> process;
    ServiceManager::ServiceMain main;
};

// A forked child shares the locks until it executes a program or closes their descriptors: a killed service would be
// seen to run for as long as its child does.
struct ServiceProcess::ForkHandlers {
    static ErrorCode install(ServiceProcess& process) {
        s_process = &process;
        return errorFromErrno(
            errorCall("pthread_atfork", [] { return ::pthread_atfork(beforeFork, afterForkInParent, inChild); }));
    }

  private:
    static void beforeFork() { s_process->m_lock.lock(); }
    static void afterForkInParent() { s_process->m_lock.unlock(); }
    static void inChild() {
        for (Descriptor* const each :
             {&s_process->m_starter, &s_process->m_reserved, &s_process->m_listener, &s_process->m_record})
            each->close();
        s_process->m_over = true;
        s_process->m_lock.unlock();
    }

    // A process is a service once, and its object stays.
    inline static ServiceProcess* s_process = nullptr;
};

ErrorCode ServiceProcess::accept(std::shared_ptr<ServiceProcess>& process) {
    // The mark of a start is looked for before anything is taken: standard input may be another program's socket.
    if (!beginsWith(STDIN_FILENO, encodeStart({}).substr(0, 4))) return errorFailedServiceControllerConnect;
    Descriptor starter(systemCall("fcntl", [] { return ::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1); }));
    if (!starter.isOpen()) return errorFromErrno(errno);
    std::string message;
    std::array<Descriptor, 2> given;
    if (const ErrorCode error = receiveMessage(STDIN_FILENO, kServiceStartLimit, message, given); error != 0) {
        return error;
    }
    auto texts = decodeStart(message);
    if (!texts) return errorFailedServiceControllerConnect;
    // The service and the programs that it starts read nothing from it.
    const Descriptor nothing = openNothing();
    if (nothing.isOpen()) ::dup2(nothing.get(), STDIN_FILENO);
    process = std::make_shared<ServiceProcess>(std::move(*texts), std::move(starter), std::move(given[0]),
                                               std::move(given[1]));
    return 0;
}

ServiceProcess::ServiceProcess(std::vector<std::string> arguments, Descriptor starter, Descriptor reserved,
                               Descriptor folder)
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
    m_told = true;
    if (error != 0) giveUpRecord();
    // The starter may be gone by now; the service runs anyway.
    RecordLock::release(m_reserved.get(), RecordLock::kStarting);
    sendMessage(m_starter.get(), encodeReply({error, m_status}));
    m_reserved.close();
    m_starter.close();
    return error;
}

// The lock would stay for as long as a forked process has the descriptor, without this.
void ServiceProcess::giveUpRecord() noexcept {
    if (m_record.isOpen()) RecordLock::release(m_record.get(), RecordLock::kRunning);
    m_record.close();
}

// From here on the service is this process.
ErrorCode ServiceProcess::takeOver() {
    const std::lock_guard guard(m_lock);
    if (const ErrorCode error = openFile(m_folder.get(), ServiceFiles::kRecord, O_RDWR, m_record); error != 0) {
        return error;
    }
    if (const ErrorCode error = RecordLock::take(m_record.get(), RecordLock::kRunning); error != 0) return error;
    m_status.currentState = kServiceStartPending;
    m_status.processId = static_cast<std::uint32_t>(::getpid());
    if (const ErrorCode error = writeRecord(m_record.get(), m_status); error != 0) return error;
    m_wakeUp = Descriptor(systemCall("eventfd", [] { return ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK); }));
    if (!m_wakeUp.isOpen()) return errorFromErrno(errno);
    ::unlinkat(m_folder.get(), ServiceFiles::kSocket, 0);  // a process that was killed left it
    ::unlinkat(m_folder.get(), ServiceFiles::kFailure, 0);
    if (const ErrorCode error = listenAt(m_folder.get(), ServiceFiles::kSocket, m_listener); error != 0) return error;
    m_spare = openNothing();
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

// Most services are up in no time: then who started one need not look again.
void ServiceProcess::awaitFirstReport() {
    const std::int64_t end = steadyTime() + std::int64_t{kAttentionInterval} * 1'000'000;
    for (;;) {
        const std::int64_t left = (end - steadyTime()) / 1'000'000;
        {
            const std::lock_guard guard(m_lock);
            if (left <= 0 || m_over || m_status.currentState != kServiceStartPending) return;
        }
        pollfd polled{m_wakeUp.get(), POLLIN, 0};
        ::poll(&polled, 1, static_cast<int>(left));
        takeWakeUps();
    }
}

void ServiceProcess::takeWakeUps() const {
    std::uint64_t count = 0;
    static_cast<void>(!::read(m_wakeUp.get(), &count, sizeof count));
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
    m_onlyAsked = false;
    write(status);
    if (status.currentState != kServiceStopped) {
        if (m_unwritten || !m_told) wake();
        return 0;
    }
    // In this order: as soon as the lock is free another process may be the service, with a record and a socket of its
    // own.
    ::unlinkat(m_folder.get(), ServiceFiles::kSocket, 0);
    giveUpRecord();
    m_over = true;
    wake();
    return 0;
}

ErrorCode ServiceProcess::setFailureText(const std::string& text) {
    const std::lock_guard guard(m_lock);
    if (m_over) return errorInvalidHandle;
    Descriptor file;
    const int flags = O_WRONLY | O_CREAT | O_TRUNC;
    if (const ErrorCode error = openFile(m_folder.get(), ServiceFiles::kFailure, flags, file); error != 0) return error;
    return writeFile(file.get(), std::string_view(text).substr(0, ServiceFiles::kFailureLimit));
}

void ServiceProcess::write(const ServiceStatus& status) {
    const std::uint32_t processId = m_status.processId;
    m_status = status;
    m_status.processId = processId;
    m_unwritten = writeRecord(m_record.get(), m_status) != 0;
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
    wake();
    return true;
}

void ServiceProcess::wake() const {
    const std::uint64_t one = 1;
    // A full counter has woken the thread already.
    static_cast<void>(!::write(m_wakeUp.get(), &one, sizeof one));
}

bool ServiceProcess::isOver() {
    const std::lock_guard guard(m_lock);
    return m_over;
}

bool ServiceProcess::needsAttention() {
    const std::lock_guard guard(m_lock);
    return m_unwritten || m_stopRequested;
}

// What did not succeed at once is tried again: a record on a full disk, a stop while the service was starting.
void ServiceProcess::attend() {
    bool stop = false;
    {
        const std::lock_guard guard(m_lock);
        if (m_over) return;
        if (m_unwritten) write(ServiceStatus(m_status));
        stop = m_stopRequested && refusalOf(m_status, kServiceControlStop) != errorServiceCannotAcceptControl;
        if (stop || m_status.currentState == kServiceStopPending) m_stopRequested = false;
    }
    if (stop) deliver(kServiceControlStop);
}

void ServiceProcess::serve() {
    std::vector<pollfd> polled;
    while (!isOver()) {
        polled = {{m_wakeUp.get(), POLLIN, 0}, {m_listener.get(), POLLIN, 0}};
        for (const Descriptor& each : m_connections)
            polled.push_back({each.get(), POLLIN, 0});
        const int ready =
            ::poll(polled.data(), polled.size(), needsAttention() ? static_cast<int>(kAttentionInterval) : -1);
        if (ready < 0) {
            if (errno != EINTR) sleepThread(kAttentionInterval);
            continue;
        }
        takeWakeUps();
        attend();
        for (std::size_t i = polled.size(); i-- > 2;) {
            if (polled[i].revents == 0) continue;
            const auto connection = m_connections.begin() + static_cast<std::ptrdiff_t>(i - 2);
            answer(*connection);
            m_connections.erase(connection);
        }
        if (polled[1].revents != 0) acceptConnection();
    }
    m_connections.clear();
    {
        const std::lock_guard guard(m_lock);
        m_listener.close();
    }
    // The process is about to end, and main best returns before what it uses is destroyed.
    waitForOne(m_main.get(), kMainPatience);
    m_main.reset();
    // A service that was marked for deletion is gone once it is stopped; nobody else may be there to see to it.
    Descriptor database;
    if (openFile(m_folder.get(), "..", O_RDONLY | O_DIRECTORY, database) == 0) removeIfDeleted(database.get(), m_name);
}

void ServiceProcess::acceptConnection() {
    const auto take = [&] {
        return Descriptor(
            systemCall("accept4", [&] { return ::accept4(m_listener.get(), nullptr, nullptr, SOCK_CLOEXEC); }));
    };
    // Who says nothing for long makes room for others.
    if (m_connections.size() == kMostConnections) m_connections.erase(m_connections.begin());
    Descriptor connection = take();
    if (connection.isOpen()) {
        m_connections.push_back(std::move(connection));
        return;
    }
    if (errno != EMFILE && errno != ENFILE) return;
    // No descriptors are left, and a service that has too many must be stoppable.
    m_spare.close();
    connection = take();
    if (!connection.isOpen()) {
        sleepThread(kAttentionInterval);
        return;
    }
    answer(connection);
    connection.close();
    m_spare = openNothing();
}

void ServiceProcess::answer(const Descriptor& connection) {
    constexpr std::uint32_t patience = 1000;  // milliseconds
    std::string message;
    if (receiveMessage(connection.get(), patience, kServiceRequestSize + 1, message) != 0) return;
    const auto control = decodeRequest(message);
    if (!control) return;
    const ServiceReply reply =
        isPeerAllowed(connection.get()) ? deliver(*control) : ServiceReply{errorAccessDenied, {}};
    sendMessage(connection.get(), encodeReply(reply));
}

ServiceReply ServiceProcess::deliver(std::uint32_t control) {
    ServiceManager::ControlHandler handler = nullptr;
    std::uint32_t before = 0;
    {
        const std::lock_guard guard(m_lock);
        handler = m_handler;
        const ErrorCode refusal = handler == nullptr ? errorServiceCannotAcceptControl : refusalOf(m_status, control);
        if (refusal != 0) return {refusal, m_status};
        // Asked to stop is what the service is from now on, also when it reports so only later.
        before = m_status.currentState;
        m_onlyAsked = control == kServiceControlStop;
        if (m_onlyAsked) writeState(kServiceStopPending);
    }
    ServiceReply reply;
    try {
        handler(control);
    } catch (...) {
        reply.error = errorExceptionInService;
    }
    const std::lock_guard guard(m_lock);
    // A stop that failed has stopped nothing: the next request tries again.
    if (reply.error != 0 && m_onlyAsked && !m_over) writeState(before);
    m_onlyAsked = false;
    reply.status = m_status;
    return reply;
}

}  // namespace KestSupport::platform
