#include "platform/windows/windows_service_process.h"

#include <atomic>
#include <mutex>

#include "platform/process_memory.h"
#include "platform/thread.h"
#include "platform/uninterrupted.h"
#include "platform/windows/windows_api.h"

namespace KestSupport::platform {
namespace {

// The service that this process is. The manager calls plain functions, so there is one for each process.
struct RunningService {
    std::wstring name;
    ServiceManager::ServiceMain main = nullptr;
    std::atomic<ServiceManager::ControlHandler> handler{nullptr};
    std::atomic<SERVICE_STATUS_HANDLE> statusHandle{nullptr};

    OwnedHandle mainReturned;  // an event

    std::mutex handling;                   // held while the handler runs; taken before the other lock
    std::atomic<DWORD> handlingThread{0};  // the last that called the handler

    UninterruptedMutex lock;        // guards the rest; held while the manager receives a report
    ServiceStatus last;             // the last report; its state is 0 before the first
    bool isStopUnreported = false;  // a request has made it stop pending, and it has reported nothing since
};

RunningService& runningService() noexcept {
    static constinit ProcessObject<RunningService> service;
    return service.get();
}

// The caller has the lock. A report that the manager refuses changes nothing.
bool report(RunningService& service, const ServiceStatus& status) noexcept {
    SERVICE_STATUS system{status.serviceType,     status.currentState, status.controlsAccepted, status.exitCode,
                          status.serviceExitCode, status.checkPoint,   status.waitHint};
    if (!SetServiceStatus(service.statusHandle.load(std::memory_order_acquire), &system)) return false;
    service.last = status;
    service.isStopUnreported = false;
    return true;
}

// The caller has the lock.
void reportState(RunningService& service, std::uint32_t state) noexcept {
    ServiceStatus status = service.last;
    status.currentState = state;
    report(service, status);
}

// The manager waits for what the service itself reports. So a client would see a service that was asked to stop, and
// has not reported anything yet, in its former state. Returns that state.
std::uint32_t beginStop(RunningService& service) {
    const std::lock_guard guard(service.lock);
    const std::uint32_t before = service.last.currentState;
    if (before == 0 || before == kServiceStopped) return before;
    reportState(service, kServiceStopPending);
    service.isStopUnreported = true;
    return before;
}

// A stop that failed has no effect: the next request tries again.
void cancelStop(RunningService& service, std::uint32_t before) {
    const std::lock_guard guard(service.lock);
    if (service.isStopUnreported) reportState(service, before);
}

// A control handler that throws has not met the control.
DWORD WINAPI handleControl(DWORD control, DWORD, void*, void*) noexcept {
    RunningService& service = runningService();
    const auto handler = service.handler.load(std::memory_order_acquire);
    if (handler == nullptr) return NO_ERROR;
    const std::lock_guard handling(service.handling);
    service.handlingThread = GetCurrentThreadId();
    const std::uint32_t before = control == kServiceControlStop ? beginStop(service) : 0;
    try {
        handler(control);
        return NO_ERROR;
    } catch (...) {
        if (control == kServiceControlStop) cancelStop(service, before);
        return errorExceptionInService;
    }
}

// For a main that throws or leaves no control handler, since nothing else would report.
void reportStopped(std::uint32_t exitCode) noexcept {
    RunningService& service = runningService();
    const std::lock_guard guard(service.lock);
    if (service.last.currentState == kServiceStopped) return;
    if (service.statusHandle.load() == nullptr)
        service.statusHandle = RegisterServiceCtrlHandlerExW(service.name.c_str(), &handleControl, nullptr);
    if (service.statusHandle.load() == nullptr) return;
    ServiceStatus stopped;
    stopped.currentState = kServiceStopped;
    stopped.exitCode = exitCode;
    report(service, stopped);
}

void WINAPI runMain(DWORD count, wchar_t** words) noexcept {
    RunningService& service = runningService();
    try {
        std::vector<std::string> arguments;
        for (DWORD i = 0; i < count; ++i)
            arguments.push_back(ansiText(words[i]));
        service.main(arguments);
        if (service.handler.load() == nullptr) reportStopped(errorProcessAborted);
    } catch (...) {
        reportStopped(errorExceptionInService);
    }
    setEvent(service.mainReturned.get());
}

// Windows runs the handler on the dispatcher's thread. Wine has another one for it, and the dispatcher returns once the
// service is stopped. If the process ended then, the sender of the control could get error 109 instead of the answer,
// which the system sends after the handler has returned.
void awaitAnswer(RunningService& service) {
    constexpr std::uint32_t kTimeOfAnswer = 5;  // milliseconds
    const std::lock_guard handled(service.handling);
    const DWORD thread = service.handlingThread;
    if (thread != 0 && thread != GetCurrentThreadId()) sleepThread(kTimeOfAnswer);
}

}  // namespace

ErrorCode runAsService(const std::string& name, ServiceManager::ServiceMain main) {
    RunningService& service = runningService();
    service.name = wideText(name);
    service.main = main;
    service.handler.store(nullptr);
    service.statusHandle.store(nullptr);
    service.last = {};
    service.mainReturned.reset(createEvent(true, false));
    if (service.mainReturned == nullptr) return errorNotEnoughMemory;
    SERVICE_TABLE_ENTRYW table[] = {{service.name.data(), &runMain}, {nullptr, nullptr}};
    if (!StartServiceCtrlDispatcherW(table)) return lastError();
    awaitAnswer(service);
    waitForOne(service.mainReturned.get(), kServiceMainPatience);
    return errorSuccess;
}

// A control may arrive before the system's function returns.
ServiceManager::Handle handleControlsBy(const std::string& name, ServiceManager::ControlHandler handler) {
    if (handler == nullptr) return nullptr;
    RunningService& service = runningService();
    service.handler.store(handler, std::memory_order_release);
    const SERVICE_STATUS_HANDLE handle = RegisterServiceCtrlHandlerExW(wideText(name).c_str(), &handleControl, nullptr);
    if (handle == nullptr) service.handler.store(nullptr);
    service.statusHandle.store(handle, std::memory_order_release);
    return handle;
}

ErrorCode reportStatus(ServiceManager::Handle statusHandle, const ServiceStatus& status) {
    RunningService& service = runningService();
    if (statusHandle == nullptr || statusHandle != service.statusHandle.load()) return errorInvalidHandle;
    const std::lock_guard guard(service.lock);
    if (service.last.currentState == kServiceStopped) return errorInvalidHandle;
    return report(service, status) ? errorSuccess : lastError();
}

}  // namespace KestSupport::platform
