// Controls one named service of the platform's service manager: starts and stops it and waits for the result, reads its
// state, reads and changes its start type, and checks whether it is installed.
//
//   KestServiceControl             the operations; made by CreateKestServiceControl
//   KestServiceControlWin          their implementation with the service manager
//   KestServiceControlException    every failure
//
// Threads: an object is for one thread at a time. Different threads may use different copies.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "support/export.h"

namespace KestSupport {

/// A failure: its kind and, when the platform failed, the platform's error code. Thrown and caught by value.
class KEST_SUPPORT_EXPORT KestServiceControlException {
  public:
    static constexpr std::uint32_t OS_ERROR = 1;          ///< a call of the platform failed
    static constexpr std::uint32_t TIMED_OUT = 2;         ///< the service did not reach the wanted state in time
    static constexpr std::uint32_t NOT_IMPLEMENTED = 99;  ///< the platform does not have the operation

    /// `errorNumber` is one of the three constants, `osErrorNumber` the platform's code of an OS_ERROR.
    explicit KestServiceControlException(std::uint32_t errorNumber);
    KestServiceControlException(std::uint32_t errorNumber, std::uint32_t osErrorNumber);
    KestServiceControlException(const KestServiceControlException& other) = default;
    KestServiceControlException& operator=(const KestServiceControlException& other) = default;

    /// Returns the kind of the failure, one of the three constants.
    std::uint32_t GetErrorNumber() const { return m_errorNumber; }
    /// The platform's error code of an OS_ERROR; 0 for the others.
    std::uint32_t GetOsErrorNumber() const { return m_osErrorNumber; }
    /// Sets the text to an English description. Does not change it for an error number that is none of the three.
    void GetErrorMessage(std::string& message) const;
    /// Returns the status code of the management interface: 270 access denied, 305 dependent services are running, 3
    /// timed out, 1 not implemented, -1 any other.
    int MapErrorToSmStatusCode() const;

  private:
    std::uint32_t m_errorNumber;
    std::uint32_t m_osErrorNumber;
};

/// Every operation throws a KestServiceControlException on failure.
class KEST_SUPPORT_EXPORT KestServiceControl {
  public:
    /// Keeps the name. Does not call the manager.
    explicit KestServiceControl(const std::string& serviceName);
    KestServiceControl(const KestServiceControl& other);
    KestServiceControl& operator=(const KestServiceControl& other);
    virtual ~KestServiceControl();

    /// Returns a new object for the service. The caller deletes it. Throws when the manager cannot be reached.
    static KestServiceControl* CreateKestServiceControl(const std::string& serviceName);

    /// Starts the service without arguments and blocks until it runs. Returns at once when it already runs. Queries the
    /// state once a second; after 30 queries throws TIMED_OUT. Throws OS_ERROR with the code 1003 when the service does
    /// not begin to start, and 31 when its start fails.
    virtual void StartServiceA() = 0;
    /// Stops the service and blocks until it is stopped. Returns at once when it is already stopped. Limits and codes
    /// are those of StartServiceA; the code is 1051 while other running services depend on the service.
    virtual void StopService() = 0;
    /// Stops the service, waits a second, starts it.
    virtual void RestartService() = 0;
    /// Returns 0 not installed, 1 stopped, 2 start pending, 3 stop pending, 4 running, 5 continue pending, 6 pause
    /// pending, 7 paused.
    virtual unsigned GetServiceStatus() = 0;
    /// Returns 2 automatic, 3 on demand, 4 disabled, or another number of the platform.
    virtual unsigned GetServiceStartType() = 0;
    /// Changes the start type to one of these numbers.
    virtual void SetServiceStartType(unsigned startType) = 0;
    /// Returns whether the manager has a service of the name.
    virtual bool IsServiceInstalled() = 0;

  protected:
    std::string m_serviceName;  ///< the name of the service
};

/// The operations with the service manager, on every platform.
class KEST_SUPPORT_EXPORT KestServiceControlWin : public KestServiceControl {
  public:
    /// Connects to the manager. Throws when it cannot be reached.
    explicit KestServiceControlWin(const std::string& serviceName);
    /// Copies share the connection to the manager; the last copy closes it. A copy begins without a service handle.
    KestServiceControlWin(const KestServiceControlWin& other);
    KestServiceControlWin& operator=(const KestServiceControlWin& other);
    ~KestServiceControlWin() override;

    void StartServiceA() override;
    void StopService() override;
    void RestartService() override;
    unsigned GetServiceStatus() override;
    unsigned GetServiceStartType() override;
    void SetServiceStartType(unsigned startType) override;
    bool IsServiceInstalled() override;

  private:
    void OpenServiceControlManager();
    void CloseServiceControlManager() noexcept;
    void OpenServiceA(std::uint32_t access);
    void CloseService() noexcept;
    std::uint32_t currentState();
    void awaitState(std::uint32_t wanted, std::uint32_t pending);

    std::shared_ptr<void> m_scmHandle;  // null when closed
    void* m_serviceHandle = nullptr;    // open during an operation, and after a failed one until the next operation
};

}  // namespace KestSupport
