// Control of one named service of the platform's service manager: start and stop, with a wait until it has happened,
// state, start type, and whether the service is installed at all.
//
//   KestServiceControl             what can be done with a service; made by CreateKestServiceControl
//   KestServiceControlWin          the same over the service manager
//   KestServiceControlException    how every failure is told
//
// Threads: an object is for one thread at a time. Copies are independent of each other, also in that respect.
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
    static constexpr std::uint32_t NOT_IMPLEMENTED = 99;  ///< there is no such operation on this platform

    explicit KestServiceControlException(std::uint32_t errorNumber);
    KestServiceControlException(std::uint32_t errorNumber, std::uint32_t osErrorNumber);
    KestServiceControlException(const KestServiceControlException& other) = default;
    KestServiceControlException& operator=(const KestServiceControlException& other) = default;

    std::uint32_t GetErrorNumber() const { return m_errorNumber; }
    /// The platform's code of an OS_ERROR; 0 for the others.
    std::uint32_t GetOsErrorNumber() const { return m_osErrorNumber; }
    /// Sets the text to an English description; leaves it alone for an error number that is none of the three.
    void GetErrorMessage(std::string& message) const;
    /// The status code of the management interface: 270 access denied, 305 dependent services are running, 3 timed out,
    /// 1 not implemented, -1 any other.
    int MapErrorToSmStatusCode() const;

  private:
    std::uint32_t m_errorNumber;
    std::uint32_t m_osErrorNumber;
};

/// Every operation throws a KestServiceControlException when it fails.
class KEST_SUPPORT_EXPORT KestServiceControl {
  public:
    explicit KestServiceControl(const std::string& serviceName);
    KestServiceControl(const KestServiceControl& other);
    KestServiceControl& operator=(const KestServiceControl& other);
    virtual ~KestServiceControl();

    /// A new object for the service, which the caller deletes. Throws when the manager cannot be reached.
    static KestServiceControl* CreateKestServiceControl(const std::string& serviceName);

    /// Starts the service without arguments and returns when it runs; at once when it runs already. It is looked at
    /// once a second, 30 times at most, then TIMED_OUT. OS_ERROR has the code 1003 for a service that is not starting,
    /// 31 for one that gives up.
    virtual void StartServiceA() = 0;
    /// Stops the service and returns when it is stopped; at once when it is stopped already. Limits and codes are those
    /// of StartServiceA; 1051 while other running services depend on it.
    virtual void StopService() = 0;
    /// Stops it, waits a second, starts it.
    virtual void RestartService() = 0;
    /// 0 not installed, 1 stopped, 2 start pending, 3 stop pending, 4 running, 5 continue pending, 6 pause pending, 7
    /// paused.
    virtual unsigned GetServiceStatus() = 0;
    /// 2 automatic, 3 on demand, 4 disabled, or another number of the platform.
    virtual unsigned GetServiceStartType() = 0;
    virtual void SetServiceStartType(unsigned startType) = 0;
    virtual bool IsServiceInstalled() = 0;

  protected:
    std::string m_serviceName;
};

class KEST_SUPPORT_EXPORT KestServiceControlWin : public KestServiceControl {
  public:
    explicit KestServiceControlWin(const std::string& serviceName);
    /// Copies share the connection to the manager, which is closed with the last of them; each has a service handle of
    /// its own, none at first.
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
    void* m_serviceHandle = nullptr;    // open during an operation, and after one that has thrown until the next
};

}  // namespace KestSupport
