// The clients' side of the system's service control manager.
//
// Texts go to it as UTF-16. A handle of ours keeps what the manager does not tell by a handle: the service's name and
// the access that it was opened for.
#include "platform/service_manager.h"

#include <algorithm>
#include <memory>

#include "platform/deadline.h"
#include "platform/process_memory.h"
#include "platform/thread.h"
#include "platform/windows/windows_api.h"
#include "platform/windows/windows_service_process.h"

namespace KestSupport::platform {
namespace {

static_assert(kServiceOwnProcess == SERVICE_WIN32_OWN_PROCESS && kServiceInteractive == SERVICE_INTERACTIVE_PROCESS &&
              kServiceManagerAllAccess == SC_MANAGER_ALL_ACCESS && kServiceAllAccess == SERVICE_ALL_ACCESS &&
              kServiceQueryConfiguration == SERVICE_QUERY_CONFIG && kServiceDelete == DELETE);

struct ServiceHandleCloser {
    void operator()(SC_HANDLE handle) const noexcept { CloseServiceHandle(handle); }
};
using OwnedServiceHandle = std::unique_ptr<SC_HANDLE__, ServiceHandleCloser>;

struct OpenHandle {
    OwnedServiceHandle system;
    std::wstring service;  // empty: the manager
    std::uint32_t access;
};

OpenHandle* ownHandle(void* handle) noexcept {
    return static_cast<OpenHandle*>(handle);
}

// The name that the system gives a list of names: each with a NUL, one more at the end.
std::wstring nameList(const std::vector<std::string>& names) {
    std::wstring list;
    for (const std::string& name : names)
        list.append(wideText(name)).push_back(L'\0');
    list.push_back(L'\0');
    return list;
}

std::string nameList(const wchar_t* list) {
    std::string names;
    for (; list != nullptr && *list != L'\0'; list += std::wstring_view(list).size() + 1)
        names.append(ansiText(list)).push_back('\0');
    return names;
}

// No two services have the same display name, an empty one included.
std::wstring displayNameOf(const std::string& text, const std::wstring& service) {
    return text.empty() ? service : wideText(text);
}

std::string textOf(const wchar_t* text) {
    return text == nullptr ? std::string() : ansiText(text);
}

ErrorCode result(bool succeeded) noexcept {
    return succeeded ? errorSuccess : lastError();
}

// Stores a handle that the system has opened. Called before anything else changes the system's last error.
ErrorCode keep(SC_HANDLE opened, const std::wstring& service, std::uint32_t access, void*& handle) {
    OwnedServiceHandle system(opened);
    if (system == nullptr) return lastError();
    handle = new OpenHandle{std::move(system), service, access};
    return errorSuccess;
}

template <typename Status>
ServiceStatus statusOf(const Status& status, std::uint32_t processId) {
    return {status.dwServiceType,
            status.dwCurrentState,
            status.dwControlsAccepted,
            status.dwWin32ExitCode,
            status.dwServiceSpecificExitCode,
            status.dwCheckPoint,
            status.dwWaitHint,
            processId};
}

// Asks for the size first; what is asked may grow in between.
template <typename Query>
ErrorCode queryGrowing(std::vector<BYTE>& buffer, const Query& query) {
    DWORD needed = 0;
    while (!query(buffer.data(), static_cast<DWORD>(buffer.size()), needed)) {
        const DWORD error = GetLastError();
        if ((error != ERROR_INSUFFICIENT_BUFFER && error != ERROR_MORE_DATA) || needed <= buffer.size()) return error;
        buffer.resize(needed);
    }
    return errorSuccess;
}

class SystemServiceManager : public ServiceManager {
  public:
    ErrorCode runDispatcher(const std::string& name, ServiceMain main) override { return runAsService(name, main); }
    Handle registerControlHandler(const std::string& name, ControlHandler handler) override {
        return handleControlsBy(name, handler);
    }
    ErrorCode setStatus(Handle statusHandle, const ServiceStatus& status) override {
        return reportStatus(statusHandle, status);
    }

    ErrorCode openManager(std::uint32_t access, Handle& manager) override {
        manager = nullptr;
        return keep(OpenSCManagerW(nullptr, nullptr, access), {}, access, manager);
    }

    ErrorCode enumerateServices(Handle manager, std::vector<ServiceEntry>& services) override {
        if (!isManager(manager)) return errorInvalidHandle;
        services.clear();
        std::vector<BYTE> buffer(65536);
        DWORD resume = 0;
        for (bool isComplete = false; !isComplete;) {
            DWORD needed = 0;
            DWORD count = 0;
            isComplete = EnumServicesStatusExW(system(manager), SC_ENUM_PROCESS_INFO, SERVICE_WIN32, SERVICE_STATE_ALL,
                                               buffer.data(), static_cast<DWORD>(buffer.size()), &needed, &count,
                                               &resume, nullptr);
            if (!isComplete && GetLastError() != ERROR_MORE_DATA) return lastError();
            const auto* const entries = reinterpret_cast<const ENUM_SERVICE_STATUS_PROCESSW*>(buffer.data());
            for (DWORD i = 0; i < count; ++i) {
                const SERVICE_STATUS_PROCESS& status = entries[i].ServiceStatusProcess;
                services.push_back({textOf(entries[i].lpServiceName), textOf(entries[i].lpDisplayName),
                                    statusOf(status, status.dwProcessId), errorSuccess});
            }
        }
        sortByName(services);
        return errorSuccess;
    }

    ErrorCode createService(Handle manager, const ServiceConfiguration& configuration, std::uint32_t access,
                            Handle& service) override {
        service = nullptr;
        if (!isManager(manager)) return errorInvalidHandle;
        if (!isServiceName(configuration.name)) return errorInvalidName;
        // The system restarts services by recovery actions, which its own tools set.
        if (configuration.restart != kServiceRestartNever) return errorCallNotImplemented;
        const std::wstring name = wideText(configuration.name);
        const std::wstring commandLine = wideText(configuration.commandLine);
        const std::wstring dependencies = nameList(dependencyNames(configuration.dependencies));
        const std::wstring displayName = displayNameOf(configuration.displayName, name);
        return keep(CreateServiceW(system(manager), name.c_str(), displayName.c_str(), access, configuration.type,
                                   configuration.startType, configuration.errorControl, commandLine.c_str(), nullptr,
                                   nullptr, dependencies.c_str(), nullptr, nullptr),
                    name, access, service);
    }

    ErrorCode openService(Handle manager, const std::string& name, std::uint32_t access, Handle& service) override {
        service = nullptr;
        if (!isManager(manager)) return errorInvalidHandle;
        if (!isServiceName(name)) return errorInvalidName;
        const std::wstring wideName = wideText(name);
        return keep(OpenServiceW(system(manager), wideName.c_str(), access), wideName, access, service);
    }

    ErrorCode queryConfiguration(Handle service, ServiceConfiguration& configuration) override {
        if (!isService(service)) return errorInvalidHandle;
        std::vector<BYTE> buffer(1024);
        const auto query = [&](BYTE* data, DWORD size, DWORD& needed) {
            return QueryServiceConfigW(system(service), reinterpret_cast<QUERY_SERVICE_CONFIGW*>(data), size, &needed);
        };
        if (const ErrorCode error = queryGrowing(buffer, query); error != 0) return error;
        const auto& found = *reinterpret_cast<const QUERY_SERVICE_CONFIGW*>(buffer.data());
        configuration = {ansiText(ownHandle(service)->service),
                         textOf(found.lpDisplayName),
                         found.dwServiceType,
                         found.dwStartType,
                         found.dwErrorControl,
                         textOf(found.lpBinaryPathName),
                         nameList(found.lpDependencies)};
        return errorSuccess;
    }

    ErrorCode changeConfiguration(Handle service, const ServiceChange& change) override {
        if (!isService(service)) return errorInvalidHandle;
        if (change.restart.value_or(kServiceRestartNever) != kServiceRestartNever) return errorCallNotImplemented;
        const std::wstring displayName = displayNameOf(change.displayName.value_or(""), ownHandle(service)->service);
        const std::wstring commandLine = wideText(change.commandLine.value_or(""));
        const std::wstring dependencies = nameList(dependencyNames(change.dependencies.value_or("")));
        return result(ChangeServiceConfigW(system(service), SERVICE_NO_CHANGE,
                                           change.startType.value_or(SERVICE_NO_CHANGE), SERVICE_NO_CHANGE,
                                           change.commandLine ? commandLine.c_str() : nullptr, nullptr, nullptr,
                                           change.dependencies ? dependencies.c_str() : nullptr, nullptr, nullptr,
                                           change.displayName ? displayName.c_str() : nullptr));
    }

    ErrorCode queryDescription(Handle service, std::vector<unsigned short>& description) override {
        if (!isService(service)) return errorInvalidHandle;
        std::vector<BYTE> buffer(1024);
        const auto query = [&](BYTE* data, DWORD size, DWORD& needed) {
            return QueryServiceConfig2W(system(service), SERVICE_CONFIG_DESCRIPTION, data, size, &needed);
        };
        if (const ErrorCode error = queryGrowing(buffer, query); error != 0) return error;
        const wchar_t* const text = reinterpret_cast<const SERVICE_DESCRIPTIONW*>(buffer.data())->lpDescription;
        const std::wstring_view found = text == nullptr ? std::wstring_view() : text;
        description.assign(found.begin(), found.end());
        return errorSuccess;
    }

    ErrorCode setDescription(Handle service, std::span<const unsigned short> description) override {
        if (!isService(service)) return errorInvalidHandle;
        std::wstring text(description.begin(), description.end());
        SERVICE_DESCRIPTIONW change{text.data()};
        return result(ChangeServiceConfig2W(system(service), SERVICE_CONFIG_DESCRIPTION, &change));
    }

    ErrorCode startService(Handle service, const std::vector<std::string>& arguments) override {
        if (!isService(service)) return errorInvalidHandle;
        std::vector<std::wstring> texts;
        for (const std::string& argument : arguments)
            texts.push_back(wideText(argument));
        std::vector<const wchar_t*> words;
        for (const std::wstring& text : texts)
            words.push_back(text.c_str());
        return result(StartServiceW(system(service), static_cast<DWORD>(words.size()), words.data()));
    }

    ErrorCode endService(Handle service) override {
        if (!isService(service)) return errorInvalidHandle;
        if ((ownHandle(service)->access & kServiceStop) == 0) return errorAccessDenied;
        ServiceStatus status;
        SystemHandle process;
        // While the manager names the process, its number is not used again. So the second answer is about the one that
        // is open.
        for (;;) {
            const std::uint32_t before = status.processId;
            if (const ErrorCode error = queryStatus(service, status); error != 0) return error;
            if (status.currentState == kServiceStopped) return errorServiceNotActive;
            if (status.processId == 0) return errorServiceCannotAcceptControl;
            if (process.isOpen() && status.processId == before) break;
            process = SystemHandle(OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, status.processId));
            if (!process.isOpen()) return lastError();
        }
        if (!TerminateProcess(process.get(), errorProcessAborted)) return lastError();
        return awaitStop(service, process.get());
    }

    ErrorCode control(Handle service, std::uint32_t control, ServiceStatus& answer) override {
        if (!isService(service)) return errorInvalidHandle;
        SERVICE_STATUS status{};
        const ErrorCode error = result(ControlService(system(service), control, &status));
        // The status that comes with some errors is not reliable in every version of the system.
        const bool isAnswered = error == errorServiceNotActive || error == errorServiceCannotAcceptControl ||
                                error == errorInvalidServiceControl;
        if (error == errorSuccess || (isAnswered && queryStatus(service, answer) != errorSuccess))
            answer = statusOf(status, 0);
        return error;
    }

    ErrorCode queryStatus(Handle service, ServiceStatus& status) override {
        if (!isService(service)) return errorInvalidHandle;
        SERVICE_STATUS_PROCESS found{};
        DWORD needed = 0;
        if (!QueryServiceStatusEx(system(service), SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&found),
                                  sizeof found, &needed))
            return lastError();
        status = statusOf(found, found.dwProcessId);
        return errorSuccess;
    }

    ErrorCode deleteService(Handle service) override {
        return isService(service) ? result(DeleteService(system(service))) : errorInvalidHandle;
    }

    void closeHandle(Handle handle) override { delete ownHandle(handle); }

  private:
    // The manager learns of the end of a process a moment later.
    ErrorCode awaitStop(Handle service, HANDLE process) {
        constexpr std::uint32_t kWait = 30'000;  // milliseconds
        constexpr std::uint32_t kPause = 10;
        const Deadline end = Deadline::after(kWait);
        if (WaitForSingleObject(process, kWait) != WAIT_OBJECT_0) return errorServiceRequestTimeout;
        for (ServiceStatus status; !end.hasPassed(); sleepThread(kPause)) {
            if (const ErrorCode error = queryStatus(service, status); error != 0) return error;
            if (status.currentState == kServiceStopped) return errorSuccess;
        }
        return errorServiceRequestTimeout;
    }

    static SC_HANDLE system(Handle handle) noexcept { return ownHandle(handle)->system.get(); }
    static bool isManager(Handle handle) noexcept { return handle != nullptr && ownHandle(handle)->service.empty(); }
    static bool isService(Handle handle) noexcept { return handle != nullptr && !ownHandle(handle)->service.empty(); }
};

}  // namespace

ServiceManager& platformServiceManager() noexcept {
    static constinit ProcessObject<SystemServiceManager> manager;
    return manager.get();
}

}  // namespace KestSupport::platform
