// Services for tests: a state directory of the test's own with the platform's manager on it, and a client that says in
// one call what a test wants. Results are the manager's. At the end whatever runs is killed.
#pragma once

#include <gtest/gtest.h>

#include "kit/child_process.h"
#include "kit/environment_guard.h"
#include "kit/gate.h"
#include "kit/temporary_folder.h"
#include "platform/service_manager.h"

namespace kit {

class ServiceFixture : public testing::Test {
  protected:
    using Manager = KestSupport::platform::ServiceManager;
    using Change = KestSupport::platform::ServiceChange;
    using Configuration = KestSupport::platform::ServiceConfiguration;
    using ErrorCode = KestSupport::platform::ErrorCode;
    using Status = KestSupport::platform::ServiceStatus;
    using Texts = std::vector<std::string>;

    ServiceFixture() { environment.set("KEST_STATE_DIR", state.path()); }
    ~ServiceFixture() override {
        for (const auto& each : list())
            end(each.name);
    }

    /// A handle of a service, or of the manager when no name is given.
    struct Opened {
        explicit Opened(const std::string& name = "", std::uint32_t access = 0xF01FF) {
            error = services.openManager(0xF003F, manager);
            handle = manager;
            if (error == 0 && !name.empty()) error = services.openService(manager, name, access, handle);
        }
        Opened(const Opened&) = delete;
        Opened& operator=(const Opened&) = delete;
        ~Opened() {
            if (handle != manager) services.closeHandle(handle);
            services.closeHandle(manager);
        }
        /// Calls the manager with the handle and the arguments, unless opening it failed.
        template <typename Call, typename... Arguments>
        ErrorCode call(Call operation, Arguments&&... arguments) const {
            return error != 0 ? error : (services.*operation)(handle, std::forward<Arguments>(arguments)...);
        }
        Manager& services = KestSupport::platform::serviceManager();
        Manager::Handle manager = nullptr;
        Manager::Handle handle = nullptr;
        ErrorCode error = 0;
    };

    static ErrorCode create(const Configuration& wanted) {
        const Opened manager;
        Manager::Handle service = nullptr;
        const ErrorCode error = manager.call(&Manager::createService, wanted, 0xF01FFu, service);
        EXPECT_EQ(service == nullptr, error != 0) << wanted.name;
        if (service != nullptr) manager.services.closeHandle(service);
        return error;
    }
    /// A service that is this program in a role.
    static ErrorCode create(const std::string& name, const std::string& role, const std::string& dependencies = "") {
        return create({name, "", 16, 2, 1, ChildProcess::commandOfRole(role), dependencies});
    }
    static ErrorCode start(const std::string& name, const Texts& arguments = {}) {
        return Opened(name).call(&Manager::startService, arguments);
    }
    static ErrorCode control(const std::string& name, std::uint32_t code, Status&& answer = {}) {
        return Opened(name).call(&Manager::control, code, answer);
    }
    static ErrorCode change(const std::string& name, const Change& wanted) {
        return Opened(name).call(&Manager::changeConfiguration, wanted);
    }
    static ErrorCode remove(const std::string& name) { return Opened(name).call(&Manager::deleteService); }
    static ErrorCode query(const std::string& name, Status& status) {
        return Opened(name).call(&Manager::queryStatus, status);
    }
    static std::vector<KestSupport::platform::ServiceEntry> list() {
        std::vector<KestSupport::platform::ServiceEntry> all;
        Opened().call(&Manager::enumerateServices, all);
        return all;
    }
    /// "STATE accepted=A exit=E", and whether there is a process; or "error E".
    static std::string tell(const std::string& name) {
        Status status;
        if (const ErrorCode error = query(name, status); error != 0) return "error " + std::to_string(error);
        return std::to_string(status.currentState) + " accepted=" + std::to_string(status.controlsAccepted) +
               " exit=" + std::to_string(status.exitCode) + (status.processId != 0 ? " process" : "");
    }
    static Status awaitState(const std::string& name, std::uint32_t wanted) {
        Status status;
        await([&] { return query(name, status) != 0 || status.currentState == wanted; });
        return status;
    }
    /// Kills the service, if it has a process, and returns when it is seen to be stopped.
    static void end(const std::string& name) {
        Status status;
        if (query(name, status) == 0 && status.processId != 0) ChildProcess::kill(status.processId);
        awaitState(name, 1);
    }

    TemporaryFolder state;
    EnvironmentGuard environment;
};

}  // namespace kit
