// Services for tests: a temporary state directory for the platform's manager, and a client that runs a whole scenario
// in one call. Where the manager is the system's, the names of the test's services have a prefix of their own, and the
// services begin in the state directory. At the end of a test each running service is killed, and removed.
#pragma once

#include <gtest/gtest.h>

#include <random>
#include <sstream>

#include "kit/child_process.h"
#include "kit/environment_guard.h"
#include "kit/gate.h"
#include "kit/system.h"
#include "kit/temporary_folder.h"
#include "platform/service_manager.h"

namespace kit {

namespace platform = KestSupport::platform;

struct ServiceFixture : testing::Test {
    using Manager = platform::ServiceManager;
    using Configuration = platform::ServiceConfiguration;
    using ErrorCode = platform::ErrorCode;
    using Status = platform::ServiceStatus;

    ServiceFixture() {
        environment.set("KEST_STATE_DIR", state.path());
        s_folder = servicesAreOfTheTest() ? "" : state.path();
    }
    ~ServiceFixture() override {
        for (const auto& each : list()) {
            endService(each.name);
            if (!s_folder.empty()) Opened(each.name).call(&Manager::deleteService);
        }
    }

    /// The name that the manager has for a service of the test.
    static std::string named(const std::string& name) {
        static const std::string prefix =
            servicesAreOfTheTest() ? "" : "kest-test-" + std::to_string(std::random_device{}()) + "-";
        return prefix + name;
    }
    /// The command line of a role of this program as a service, and its part after the program. A path stays, quoted or
    /// not.
    static std::string commandOf(const std::string& role) {
        return role.find_first_of("/'") == 0 ? role : ChildProcess::commandOfRole(role, s_folder);
    }
    static std::string argumentsOf(const std::string& role) { return ChildProcess::argumentsOfRole(role, s_folder); }

    /// A handle of a service, or of the manager when no name is given.
    struct Opened {
        explicit Opened(const std::string& name = "", std::uint32_t access = 0xF01FF) {
            error = services.openManager(0xF003F, manager);
            handle = manager;
            if (error == 0 && !name.empty()) error = services.openService(manager, named(name), access, handle);
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
        Manager& services = platform::serviceManager();
        Manager::Handle manager = nullptr;
        Manager::Handle handle = nullptr;
        ErrorCode error = 0;
    };

    static ErrorCode create(Configuration wanted) {
        const Opened manager;
        wanted.name = named(wanted.name);
        Manager::Handle service = nullptr;
        const ErrorCode error = manager.call(&Manager::createService, wanted, 0xF01FFu, service);
        EXPECT_EQ(service == nullptr, error != 0) << wanted.name;
        if (service != nullptr) manager.services.closeHandle(service);
        return error;
    }
    static Status query(const std::string& name) {
        Status status;
        Opened(name).call(&Manager::queryStatus, status);
        return status;
    }
    static std::vector<platform::ServiceEntry> list() {
        std::vector<platform::ServiceEntry> all;
        Opened().call(&Manager::enumerateServices, all);
        std::erase_if(all, [](const auto& each) { return !each.name.starts_with(named("")); });
        for (auto& each : all)
            each.name.erase(0, named("").size());
        return all;
    }

    /// Runs steps separated by semicolons and returns their results, separated by blanks: an error number, and
    ///   create NAME ROLE DEPENDENCY..., line NAME ROLE ARGUMENT...    a role of this program, or the path of a program
    ///   start NAME ARGUMENT..., kill NAME, remove NAME, type NAME STARTTYPE, needs NAME DEPENDENCY
    ///   control NAME CODE                 ERROR/STATE
    ///   tell NAME                         STATE/ACCEPTED/EXITCODE, with a p when it has a process
    ///   await NAME STATE, end NAME        no result; end kills the process and waits
    static std::string run(const std::string& steps) {
        std::string results;
        std::istringstream all(steps);
        for (std::string step; std::getline(all >> std::ws, step, ';');) {
            const std::string result = runStep(step);
            if (!result.empty()) results += (results.empty() ? "" : " ") + result;
        }
        return results;
    }

    TemporaryFolder state;
    EnvironmentGuard environment;

  private:
    inline static std::string s_folder;  // in which services begin; empty if the manager ensures that

    static std::uint32_t numberOf(const std::string& text) { return static_cast<std::uint32_t>(std::stoul(text)); }

    // Wine's manager does not notice that a process was killed.
    static void endService(const std::string& name) {
        Status answer;
        const std::uint32_t process = query(name).processId;
        if (servicesAreOfTheTest() || Opened(name).call(&Manager::control, 1u, answer) != 0)
            ChildProcess::kill(process);
        awaitState(name, 1);
    }
    static void awaitState(const std::string& name, std::uint32_t wanted) {
        const auto isReached = [=](std::uint32_t state) { return state == wanted || state == 0; };
        await([&] { return isReached(query(name).currentState); });
    }

    static std::string runStep(const std::string& step) {
        std::istringstream words(step);
        std::string verb, name;
        words >> verb >> name;
        std::vector<std::string> rest(std::istream_iterator<std::string>(words), {});
        if (verb == "create") {
            Configuration wanted{name, "", 16, 2, 1, commandOf(rest.at(0)), ""};
            for (std::size_t i = 1; i < rest.size(); ++i)
                wanted.dependencies += named(rest[i]) + '\0';
            return std::to_string(create(wanted));
        }
        if (verb == "tell") {
            Status status;
            const ErrorCode error = Opened(name).call(&Manager::queryStatus, status);
            if (error != 0) return std::to_string(error);
            return std::to_string(status.currentState) + "/" + std::to_string(status.controlsAccepted) + "/" +
                   std::to_string(status.exitCode) + (status.processId != 0 ? "p" : "");
        }
        if (verb == "end") return endService(name), "";
        if (verb == "await") return awaitState(name, numberOf(rest.at(0))), "";
        const Opened service(name);
        if (verb == "start") return std::to_string(service.call(&Manager::startService, rest));
        if (verb == "kill") return std::to_string(service.call(&Manager::endService));
        if (verb == "remove") return std::to_string(service.call(&Manager::deleteService));
        platform::ServiceChange change;
        if (verb == "type") change.startType = numberOf(rest.at(0));
        if (verb == "needs") change.dependencies = named(rest.at(0));
        if (verb == "line")
            change.commandLine = commandOf(step.substr(step.find(rest.at(0), verb.size() + name.size())));
        if (verb != "control") return std::to_string(service.call(&Manager::changeConfiguration, change));
        Status answer;
        const std::string error = std::to_string(service.call(&Manager::control, numberOf(rest.at(0)), answer));
        return error + "/" + std::to_string(answer.currentState);
    }
};

}  // namespace kit
