// The process of a service, as the manager sees it: it holds the lock by which the service is seen to run, keeps the
// status record, and answers controls on a socket of its own.
//
// Threads: start and serve belong to the thread that the dispatcher was given; everything else may be called by any.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/linux/linux_descriptor.h"
#include "platform/services/messages.h"
#include "platform/uninterrupted.h"
#include "platform/wait.h"

namespace KestSupport::platform {

class ServiceProcess : public std::enable_shared_from_this<ServiceProcess> {
  public:
    /// Takes the request that waits at standard input, once; errorFailedServiceControllerConnect when there is none.
    static ErrorCode accept(std::shared_ptr<ServiceProcess>& process);

    ServiceProcess(std::vector<std::string> arguments, Descriptor starter, Descriptor reserved, Descriptor folder);

    /// Becomes the running service, and lets main run on a thread of its own; who started the process is told either
    /// way.
    ErrorCode start(ServiceManager::ServiceMain main);
    /// Answers controls until the service is stopped.
    void serve();

    void setHandler(ServiceManager::ControlHandler handler);
    ErrorCode setStatus(const ServiceStatus& status);
    ErrorCode setFailureText(const std::string& text);
    /// A supervisor's request that the process end. False when the service takes no stop.
    bool requestStop();

  private:
    struct MainCall;
    struct ForkHandlers;

    static std::uint32_t runMain(void* call);
    void giveUpRecord() noexcept;  // under m_lock
    ErrorCode takeOver();
    ErrorCode launch(ServiceManager::ServiceMain main);
    void awaitFirstReport();
    void takeWakeUps() const;
    /// The service is stopped when its main has ended so that nobody can report for it.
    void endOfMain(bool threw);
    void write(const ServiceStatus& status);  // under m_lock
    void writeState(std::uint32_t state);     // under m_lock
    bool isOver();
    bool needsAttention();
    void attend();
    void acceptConnection();
    void answer(const Descriptor& connection);
    ServiceReply deliver(std::uint32_t control);
    void wake() const;

    const std::string m_name;
    const std::vector<std::string> m_arguments;
    Descriptor m_folder;
    Descriptor m_wakeUp;
    Descriptor m_spare;  // given up to answer a control when no descriptors are left
    std::vector<Descriptor> m_connections;
    OwnedHandle m_main;  // the thread that main runs on

    // Guards what follows. Held while the process forks: a child drops the descriptors by which the service is seen to
    // run, or is waited for.
    UninterruptedMutex m_lock;
    Descriptor m_starter;   // where the process is started from: told once
    Descriptor m_reserved;  // the record, with the lock of the start
    Descriptor m_listener;
    Descriptor m_record;
    ServiceStatus m_status;
    ServiceManager::ControlHandler m_handler = nullptr;
    bool m_unwritten = false;      // the record could not be written
    bool m_stopRequested = false;  // by the supervisor
    bool m_onlyAsked = false;      // a stop is being delivered, and the service has not reported since
    bool m_told = false;           // who started the process has heard how that went
    bool m_over = false;
};

}  // namespace KestSupport::platform
