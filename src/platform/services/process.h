// The manager's part of a service's process: it holds the lock that shows that the service runs, stores the status
// record, and answers controls at its listener.
//
// Threads: start and serve belong to the thread of the dispatcher; any thread may call the rest.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/services/channel.h"
#include "platform/services/messages.h"
#include "platform/services/output.h"
#include "platform/services/status_record.h"
#include "platform/uninterrupted.h"
#include "platform/wait.h"

namespace KestSupport::platform {

class ServiceProcess : public std::enable_shared_from_this<ServiceProcess> {
  public:
    /// Takes the start message from standard input; errorFailedServiceControllerConnect when there is none. Called
    /// once in a process.
    static Result<std::shared_ptr<ServiceProcess>> accept();

    ServiceProcess(std::vector<std::string> arguments, Channel starter, StatusRecord reserved, Folder folder);

    /// Becomes the running service and runs main on another thread. Sends the result to the starter.
    ErrorCode start(ServiceManager::ServiceMain main);
    /// Answers controls until the service is stopped.
    void serve();

    void setHandler(ServiceManager::ControlHandler handler);
    ErrorCode setStatus(const ServiceStatus& status);
    ErrorCode setFailureText(const std::string& text);
    /// Stops the service for a supervisor, now or after its start. False when the service accepts no stop.
    bool requestStop();

  private:
    struct MainCall;
    struct ForkHandlers;

    static std::uint32_t runMain(void* call);
    void giveUpRecord() noexcept;  // under m_lock
    ErrorCode takeOver();
    ErrorCode launch(ServiceManager::ServiceMain main);
    void awaitFirstReport();
    /// Stops the service when main has thrown or has left no control handler, since nothing else would report.
    void endOfMain(bool threw);
    void write(const ServiceStatus& status);  // under m_lock
    void writeState(std::uint32_t state);     // under m_lock
    bool isOver();
    bool needsAttention();
    void attend();
    void acceptConnection();
    void answer(const Channel& connection);
    ServiceReply deliver(std::uint32_t control, bool byClient);

    const std::string m_name;
    const std::vector<std::string> m_arguments;
    Folder m_folder;
    WakeUp m_wakeUp;
    SystemHandle m_spare;  // closed to answer a control when no handles are left
    std::vector<Channel> m_connections;
    OutputKeeper m_output;
    OwnedHandle m_main;  // the thread that runs main

    // Guards the following members. Held while the process forks: the child closes the handles that show that the
    // service runs and those that other processes wait for.
    UninterruptedMutex m_lock;
    Channel m_starter;        // open until the result of the start is sent
    StatusRecord m_reserved;  // the starter's handle, with the lock of the start
    Listener m_listener;
    StatusRecord m_record;
    ServiceStatus m_status;
    ServiceRun m_run;
    ServiceManager::ControlHandler m_handler = nullptr;
    bool m_unwritten = false;       // the record could not be written
    bool m_stopRequested = false;   // by the supervisor
    bool m_stopUnreported = false;  // a stop is being delivered, and the service has not reported since
    bool m_decided = false;         // the result of the start is decided
    bool m_over = false;
};

}  // namespace KestSupport::platform
