#include "support/service_control.h"

#include "platform/service_manager.h"
#include "platform/thread.h"

namespace KestSupport {
namespace {

constexpr std::uint32_t kPollInterval = 1000;  // milliseconds
constexpr int kMostPolls = 30;

[[noreturn]] void failWith(platform::ErrorCode error) {
    throw KestServiceControlException(KestServiceControlException::OS_ERROR, error);
}

void require(platform::ErrorCode error) {
    if (error != 0) failWith(error);
}

}  // namespace

KestServiceControlException::KestServiceControlException(std::uint32_t errorNumber)
    : KestServiceControlException(errorNumber, 0) {}

KestServiceControlException::KestServiceControlException(std::uint32_t errorNumber, std::uint32_t osErrorNumber)
    : m_errorNumber(errorNumber), m_osErrorNumber(osErrorNumber) {}

void KestServiceControlException::GetErrorMessage(std::string& message) const {
    if (m_errorNumber == TIMED_OUT) {
        message = "A command to start or stop the service timed out.";
    } else if (m_errorNumber == NOT_IMPLEMENTED) {
        message = "The command is not implemented.";
    } else if (m_errorNumber == OS_ERROR && m_osErrorNumber == platform::errorDependentServicesRunning) {
        message =
            "Unable to stop the SNMP service because one or more running services depend on it. Please stop all "
            "dependent services before running this command.";
    } else if (m_errorNumber == OS_ERROR) {
        message = "An OS error occurred (error number = " + std::to_string(m_osErrorNumber) +
                  "): " + platform::errorMessage(m_osErrorNumber);
    }
}

int KestServiceControlException::MapErrorToSmStatusCode() const {
    constexpr int kAccessDenied = 270;
    constexpr int kDependentServicesRunning = 305;
    constexpr int kTimedOut = 3;
    constexpr int kNotImplemented = 1;
    constexpr int kOther = -1;
    if (m_errorNumber == TIMED_OUT) return kTimedOut;
    if (m_errorNumber == NOT_IMPLEMENTED) return kNotImplemented;
    if (m_errorNumber != OS_ERROR) return kOther;
    switch (m_osErrorNumber) {
        case platform::errorAccessDenied:
            return kAccessDenied;
        case platform::errorWaitTimeout:
            return kTimedOut;
        case platform::errorDependentServicesRunning:
            return kDependentServicesRunning;
        default:
            return kOther;
    }
}

KestServiceControl::KestServiceControl(const std::string& serviceName) : m_serviceName(serviceName) {}
KestServiceControl::KestServiceControl(const KestServiceControl& other) = default;
KestServiceControl& KestServiceControl::operator=(const KestServiceControl& other) = default;
KestServiceControl::~KestServiceControl() = default;

KestServiceControl* KestServiceControl::CreateKestServiceControl(const std::string& serviceName) {
    return std::make_unique<KestServiceControlWin>(serviceName).release();
}

KestServiceControlWin::KestServiceControlWin(const std::string& serviceName) : KestServiceControl(serviceName) {
    OpenServiceControlManager();
}

KestServiceControlWin::KestServiceControlWin(const KestServiceControlWin& other)
    : KestServiceControl(other), m_scmHandle(other.m_scmHandle) {}

KestServiceControlWin& KestServiceControlWin::operator=(const KestServiceControlWin& other) {
    if (this == &other) return *this;
    KestServiceControl::operator=(other);
    CloseService();
    m_scmHandle = other.m_scmHandle;
    return *this;
}

KestServiceControlWin::~KestServiceControlWin() {
    CloseService();
    CloseServiceControlManager();
}

void KestServiceControlWin::StartServiceA() {
    OpenServiceA(platform::kServiceStart | platform::kServiceQueryStatus);
    const platform::ErrorCode error = platform::serviceManager().startService(m_serviceHandle, {});
    if (error != platform::errorServiceAlreadyRunning) require(error);
    const std::uint32_t state = currentState();
    if (state != platform::kServiceRunning) {
        if (state != platform::kServiceStartPending) failWith(platform::errorCannotComplete);
        awaitState(platform::kServiceRunning, platform::kServiceStartPending);
    }
    CloseService();
}

void KestServiceControlWin::StopService() {
    OpenServiceA(platform::kServiceStop | platform::kServiceQueryStatus);
    platform::ServiceStatus status;
    const platform::ErrorCode error =
        platform::serviceManager().control(m_serviceHandle, platform::kServiceControlStop, status);
    // For these two errors the service's state decides what to do.
    if (error != platform::errorServiceNotActive && error != platform::errorServiceCannotAcceptControl) require(error);
    if (status.currentState != platform::kServiceStopped) {
        if (status.currentState != platform::kServiceStopPending) failWith(platform::errorCannotComplete);
        awaitState(platform::kServiceStopped, platform::kServiceStopPending);
    }
    CloseService();
}

void KestServiceControlWin::RestartService() {
    StopService();
    platform::sleepThread(kPollInterval);
    StartServiceA();
}

unsigned KestServiceControlWin::GetServiceStatus() {
    if (!IsServiceInstalled()) return 0;
    OpenServiceA(platform::kServiceQueryStatus);
    const std::uint32_t state = currentState();
    CloseService();
    return state;
}

unsigned KestServiceControlWin::GetServiceStartType() {
    OpenServiceA(platform::kServiceQueryConfiguration);
    platform::ServiceConfiguration configuration;
    require(platform::serviceManager().queryConfiguration(m_serviceHandle, configuration));
    CloseService();
    return configuration.startType;
}

void KestServiceControlWin::SetServiceStartType(unsigned startType) {
    OpenServiceA(platform::kServiceChangeConfiguration);
    platform::ServiceChange change;
    change.startType = startType;
    require(platform::serviceManager().changeConfiguration(m_serviceHandle, change));
    CloseService();
}

bool KestServiceControlWin::IsServiceInstalled() {
    platform::ServiceManager& manager = platform::serviceManager();
    void* service = nullptr;
    const platform::ErrorCode error =
        manager.openService(m_scmHandle.get(), m_serviceName, platform::kServiceQueryStatus, service);
    if (error == platform::errorServiceDoesNotExist) return false;
    require(error);
    manager.closeHandle(service);
    return true;
}

void KestServiceControlWin::OpenServiceControlManager() {
    if (m_scmHandle != nullptr) return;
    platform::ServiceManager& manager = platform::serviceManager();
    void* opened = nullptr;
    require(manager.openManager(platform::kServiceManagerConnect, opened));
    m_scmHandle.reset(opened, [&manager](void* handle) { manager.closeHandle(handle); });
}

void KestServiceControlWin::CloseServiceControlManager() noexcept {
    m_scmHandle.reset();
}

void KestServiceControlWin::OpenServiceA(std::uint32_t access) {
    CloseService();
    require(platform::serviceManager().openService(m_scmHandle.get(), m_serviceName, access, m_serviceHandle));
}

void KestServiceControlWin::CloseService() noexcept {
    if (m_serviceHandle != nullptr) platform::serviceManager().closeHandle(m_serviceHandle);
    m_serviceHandle = nullptr;
}

std::uint32_t KestServiceControlWin::currentState() {
    platform::ServiceStatus status;
    require(platform::serviceManager().queryStatus(m_serviceHandle, status));
    return status.currentState;
}

// Queries the state once a second until it is no longer pending.
void KestServiceControlWin::awaitState(std::uint32_t wanted, std::uint32_t pending) {
    for (int polls = 0; polls < kMostPolls; ++polls) {
        platform::sleepThread(kPollInterval);
        const std::uint32_t state = currentState();
        if (state == wanted) return;
        if (state != pending) failWith(platform::errorGeneralFailure);
    }
    throw KestServiceControlException(KestServiceControlException::TIMED_OUT);
}

}  // namespace KestSupport
