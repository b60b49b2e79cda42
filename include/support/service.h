// The host of a program that runs as a service of the platform's service manager or, for testing and for supervisors
// that only know processes, as an ordinary console program.
//
//   KestService    derive from it, supply startIt and stopIt, call start
//
// Console mode: start runs startIt on the calling thread, waits for stop, Ctrl+C, Ctrl+Break or a supervisor's request
// to end (SIGTERM), and runs stopIt. While startIt runs, and after start has returned, control events have the effect
// that they have without a service. A supervisor that asks for it ($NOTIFY_SOCKET) hears when the service is ready and
// when it stops. Service mode: start hands the calling thread to the manager; startIt and stopIt
// run on threads of their own, while the manager hears once a second that they are under way.
//
// Threads: stop may be called from any thread, also from within startIt; state from any. The rest belongs to the thread
// that owns the object.
//
// Lifetime: one object serves the whole process: each constructor makes its object the one that getService returns and
// that controls and console events reach. It outlives start.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "support/events.h"
#include "support/export.h"
#include "support/strings.h"

namespace KestSupport {

namespace internal {
class ServiceHost;
struct ServiceRecord;
}  // namespace internal

class KEST_SUPPORT_EXPORT KestService {
  public:
    /// The numbers that the service manager uses.
    enum tState : std::uint32_t {
        STOPPED = 1,        ///< not running; the initial state
        START_PENDING = 2,  ///< reported while startIt runs; never what state returns
        STOP_PENDING = 3,   ///< asked to stop
        RUNNING = 4,        ///< started
    };

    KestService();
    /// `dependencies` are the names of the services that have to run first, each ended by a NUL.
    KestService(const std::string& appName, const std::string& serviceName, const std::string& displayName,
                const std::string& dependencies, bool interactive);
    KestService(bool interactive, const std::string& dependencies);
    KestService(const KestService&) = delete;
    KestService& operator=(const KestService&) = delete;
    virtual ~KestService();

    /// Runs the service and returns when it has stopped; at once with true when it is running already.
    /// Console mode gives the arguments to startIt, returns false when that does, and lets through what startIt or
    /// stopIt throws. Service mode takes its arguments from the manager and always returns true, also, and at once,
    /// when the process was not started by the manager. A request to stop that came before the first run ends that
    /// run; a later run begins without one. When start returns, startIt and stopIt have returned.
    bool start(const std::string& arguments, bool runAsService);

    /// Asks the service to stop, and returns true without waiting for it. What a dependent of the stop event throws
    /// reaches the caller; the service is then not asked, and its state is as before.
    bool stop();

    /// Registers the running program with the manager: automatic start, system account, the program's path followed by
    /// m_arguments. False when that fails; true on a platform without a manager. A description that the manager refuses
    /// is logged and does not count.
    bool install();

    /// Stops the service, waiting as long as that takes, and takes it out of the manager's database. False when that
    /// fails; true on a platform without a manager.
    bool remove();

    tState state() const noexcept;
    const std::string& serviceName() const noexcept { return m_serviceName; }

    /// The process's service: the latest one made, null before the first. It is not cleared when that object ends.
    static KestService* getService() noexcept { return m_pThis.load(std::memory_order_acquire); }

  protected:
    /// The start work; `arguments` are, in service mode, the manager's, each followed by a blank. True when the service
    /// has started. In service mode an exception counts as false; its text is logged at level 1, and the service ends
    /// with the exit code 1064. stopIt may run before startIt has returned.
    virtual bool startIt(const std::string& arguments) = 0;

    /// The stop work; the result is only logged. In service mode an exception counts as false and is logged at level 1.
    virtual bool stopIt() = 0;

    /// Tells the manager a state, the exit code and how many milliseconds the next report may take. Whether the manager
    /// took it; in console mode true, and nothing is done.
    bool ReportStatusToSCMgr(std::uint32_t currentState, std::uint32_t exitCode, std::uint32_t waitHint);

    /// Set when the service is asked to stop.
    KestEvent& getEventObject() noexcept { return m_event; }

    /// The manager's handle for status reports; null before the manager has called.
    void setStatusHandle(void* handle) noexcept;
    void* getStatusHandle() const noexcept;

    /// Makes the service one that reads its settings again on request; called before start. The request is the
    /// manager's control 6 ("parameter change") or, on Linux, SIGHUP; without this call the manager refuses the one,
    /// and the other has the effect that it has on any program. `reload` is called once for each request, from the
    /// beginning of start until its end, so perhaps before startIt and after stopIt. It runs on a thread of the manager
    /// or of the console, perhaps on both at once, and a request to stop waits until it returns. What it throws is
    /// logged at level 1; the sender of the control gets error 1064. A program that was started with SIGHUP ignored, as
    /// nohup does, ignores it.
    void acceptReload(std::function<void()> reload);

    /// Does nothing.
    void AddToMessageLog(const std::string& message);

    std::string m_appName;  ///< for the derived class; not read here
    std::string m_serviceName;
    std::string m_displayName;
    std::string m_dependencies;
    std::string m_arguments;     ///< follows the program's path in what install registers
    wstring16 m_description;     ///< registered by install unless empty
    bool m_interactive = false;  ///< the service may interact with the desktop

  private:
    friend class internal::ServiceHost;

    bool runInConsole(const std::string& arguments);
    void runUnderManager();

    static std::atomic<KestService*> m_pThis;

    KestEvent m_event;
    std::unique_ptr<internal::ServiceRecord> m_pRecord;
};

}  // namespace KestSupport
