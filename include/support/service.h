// The host of a program that runs as a service of the platform's service manager, or as an ordinary console program,
// for tests and for supervisors that start processes.
//
//   KestService    derive from it, supply startIt and stopIt, call start
//
// Console mode: start runs startIt on the calling thread, waits for stop, Ctrl+C, Ctrl+Break or a supervisor's request
// to end (SIGTERM), and runs stopIt. While startIt runs, and after start has returned, these events have their default
// effect. A supervisor that sets $NOTIFY_SOCKET is notified when the service is ready and when it stops.
// Service mode: start gives the calling thread to the manager. startIt and stopIt run on other threads, and the manager
// gets a report once a second while they run.
//
// Threads: any thread may call stop, also from within startIt, and state. The other members belong to the thread that
// owns the object.
//
// Lifetime: one object serves the whole process. getService returns the object of the latest constructor, and controls
// and console events reach that object. It outlives start.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "support/events.h"
#include "support/export.h"
#include "support/strings.h"

namespace KestSupport {

namespace internal {
class ServiceHost;
struct ServiceRecord;
}  // namespace internal

/// Derive from it, supply startIt and stopIt, and call start.
class KEST_SUPPORT_EXPORT KestService {
  public:
    /// The numbers that the service manager uses.
    enum tState : std::uint32_t {
        STOPPED = 1,        ///< not running; the initial state
        START_PENDING = 2,  ///< reported while startIt runs; state never returns it
        STOP_PENDING = 3,   ///< a request to stop was made
        RUNNING = 4,        ///< started
    };

    KestService();
    /// `dependencies` are the names of the services that must run first, each with a NUL at its end.
    KestService(const std::string& appName, const std::string& serviceName, const std::string& displayName,
                const std::string& dependencies, bool interactive);
    KestService(bool interactive, const std::string& dependencies);
    KestService(const KestService&) = delete;
    KestService& operator=(const KestService&) = delete;
    virtual ~KestService();

    /// Runs the service and returns when it has stopped. Returns true at once when the service already runs.
    /// Console mode passes the arguments to startIt, returns false when startIt does, and throws what startIt or stopIt
    /// throws. Service mode gets its arguments from the manager and always returns true; it returns at once when the
    /// manager did not start the process. A request to stop before the first run ends that run; a later run begins
    /// without one. When start returns, startIt and stopIt have returned.
    bool start(const std::string& arguments, bool runAsService);

    /// Requests a stop and returns true without waiting for it. Throws what a dependent of the stop event throws; then
    /// the request is not made, and the state is as before.
    bool stop();

    /// Registers the running program with the manager: automatic start, system account, the program's path followed by
    /// m_arguments. Returns false on failure, and true on a platform without a manager. A description that the manager
    /// refuses is logged and does not change the result.
    bool install();

    /// Stops the service, waits without limit until it is stopped, and removes it from the manager's database. Returns
    /// false on failure, and true on a platform without a manager.
    bool remove();

    /// Returns the current state.
    tState state() const noexcept;
    /// Returns the name by which the manager knows the service.
    const std::string& serviceName() const noexcept { return m_serviceName; }

    /// Returns the service made last, null before the first. It still returns that object after its destruction.
    static KestService* getService() noexcept { return m_pThis.load(std::memory_order_acquire); }

  protected:
    /// Starts the work and returns whether the service has started. In service mode `arguments` are the manager's, each
    /// followed by a blank, and an exception counts as false: its text is logged at level 1, and the service ends with
    /// the exit code 1064. stopIt may run before startIt has returned.
    virtual bool startIt(const std::string& arguments) = 0;

    /// Ends the work. The result is only logged. In service mode an exception counts as false and is logged at level 1.
    virtual bool stopIt() = 0;

    /// Reports a state, the exit code and the milliseconds until the next report to the manager. Returns whether the
    /// manager accepted the report. In console mode it does nothing and returns true.
    bool ReportStatusToSCMgr(std::uint32_t currentState, std::uint32_t exitCode, std::uint32_t waitHint);

    /// The stop event: set by a request to stop.
    KestEvent& getEventObject() noexcept { return m_event; }

    /// The manager's handle for status reports; null until the manager has started the service.
    void setStatusHandle(void* handle) noexcept;
    void* getStatusHandle() const noexcept;

    /// Makes the service accept requests to read its settings again. Call it before start. The request is the manager's
    /// control 6 ("parameter change") or, on Linux, SIGHUP. Without this call the manager refuses the control, and
    /// SIGHUP has its default effect. `reload` is called once for each request from the beginning of start to its end,
    /// so possibly before startIt and after stopIt. It runs on a thread of the manager or of the console, possibly on
    /// both concurrently; a request to stop waits until it returns. An exception is logged at level 1; the sender of
    /// the control gets error 1064. A program that was started with SIGHUP ignored, as by nohup, ignores it.
    template <typename Function>
    void acceptReload(Function reload) {
        setReload(std::make_shared<Function>(std::move(reload)),
                  [](void* object) { (*static_cast<Function*>(object))(); });
    }

    /// Does nothing.
    void AddToMessageLog(const std::string& message);

    std::string m_appName;       ///< for the derived class; not read here
    std::string m_serviceName;   ///< the name by which the manager knows the service
    std::string m_displayName;   ///< what the manager's clients show
    std::string m_dependencies;  ///< the names of the services that must run first, each with a NUL at its end
    std::string m_arguments;     ///< follows the program's path in what install registers; see KestJoinArguments
    wstring16 m_description;     ///< registered by install unless empty
    bool m_interactive = false;  ///< the service may interact with the desktop

  private:
    friend class internal::ServiceHost;

    // Not a std::function, whose header takes 100 ms to compile.
    void setReload(std::shared_ptr<void> reload, void (*call)(void*));
    bool runInConsole(const std::string& arguments);
    void runUnderManager();

    static std::atomic<KestService*> m_pThis;

    KestEvent m_event;
    std::unique_ptr<internal::ServiceRecord> m_pRecord;
};

}  // namespace KestSupport
