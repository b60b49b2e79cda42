// Tests KestServiceControl and its exception with a recording manager, and the life of an installed service.
#include "support/service_control.h"

#include <cerrno>
#include <functional>

#include "kit/recording_service_manager.h"
#include "kit/service_fixture.h"
#include "kit/system.h"
#include "platform/process.h"
#include "platform/program_path.h"
#include "support/exceptions.h"
#include "support/service.h"

namespace {

using namespace KestSupport;
using kit::RecordingServiceManager;
using Texts = std::vector<std::string>;
using Code = std::uint32_t;

// Returns "NUMBER/CODE" of the exception, or "none".
template <typename Call>
std::string failureOf(Call call) {
    try {
        call();
    } catch (const KestServiceControlException& failed) {
        return std::to_string(failed.GetErrorNumber()) + "/" + std::to_string(failed.GetOsErrorNumber());
    }
    return "none";
}

TEST(ServiceControlException, DescribesAndMapsItself) {
    const struct {
        Code number, code;
        std::string text;
        int status;
    } cases[] = {
        {1, 5, "An OS error occurred (error number = 5): " + kit::systemText(5, EACCES), 270},
        {1, 258, "An OS error occurred (error number = 258): " + kit::systemText(258, ETIMEDOUT), 3},
        {1, 1051,
         "Unable to stop the SNMP service because one or more running services depend on it. Please stop all dependent "
         "services before running this command.",
         305},
        {1, 1003, "An OS error occurred (error number = 1003): " + kit::platform::errorMessage(1003), -1},
        {1, 4000000000, "An OS error occurred (error number = 4000000000): ", -1},
        {2, 5, "A command to start or stop the service timed out.", 3},
        {99, 1051, "The command is not implemented.", 1},
        {7, 5, "unchanged", -1},
    };
    for (const auto& each : cases) {
        KestServiceControlException copy(7);
        EXPECT_EQ(copy.GetOsErrorNumber(), 0u);
        copy = KestServiceControlException(each.number, each.code);
        std::string text = "unchanged";
        copy.GetErrorMessage(text);
        EXPECT_EQ(text, each.text);
        EXPECT_EQ(copy.MapErrorToSmStatusCode(), each.status) << each.text;
        EXPECT_EQ(copy.GetErrorNumber(), each.number);
        EXPECT_EQ(copy.GetOsErrorNumber(), each.code);
    }
}

TEST(ServiceControl, OpensWithTheNeededAccess) {
    RecordingServiceManager manager;
    manager.configuration.startType = 3;
    manager.stateAfterControl = 1;
    manager.queriedStates = {4, 7, 4};
    {
        const std::unique_ptr<KestServiceControl> service(KestServiceControl::CreateKestServiceControl("s"));
        const std::function<void()> operations[] = {
            [&] { service->StartServiceA(); },        [&] { EXPECT_EQ(service->GetServiceStatus(), 7u); },
            [&] { service->StopService(); },          [&] { EXPECT_EQ(service->GetServiceStartType(), 3u); },
            [&] { service->SetServiceStartType(4); }, [&] { EXPECT_TRUE(service->IsServiceInstalled()); },
            [&] { service->RestartService(); }};
        for (const auto& operation : operations) {
            operation();
            EXPECT_EQ(manager.openHandles(), 1u) << manager.calls().back();
        }
        manager.failures["openService"] = 1060;
        EXPECT_EQ(service->GetServiceStatus(), 0u);
    }
    EXPECT_EQ(
        manager.calls(),
        (Texts{
            "openManager 1",      "openService s 20", "startService 0",        "queryStatus",     "openService s 4",
            "openService s 4",    "queryStatus",      "openService s 36",      "control 1",       "openService s 1",
            "queryConfiguration", "openService s 2",  "changeConfiguration 4", "openService s 4", "openService s 36",
            "control 1",          "openService s 20", "startService 0",        "queryStatus",     "openService s 4"}));
    EXPECT_EQ(manager.openHandles(), 0u);
}

TEST(ServiceControl, ThrowsThePlatformsErrors) {
    const struct {
        const char* call;  // that fails
        Code error;
        std::vector<Code> states;  // the answers to queries
        Code afterControl;
        std::string started, stopped;
    } cases[] = {
        {"openManager", 5, {}, 1, "1/5", "1/5"},        {"openService", 1060, {}, 1, "1/1060", "1/1060"},
        {"startService", 1056, {4}, 1, "none", "none"}, {"startService", 1058, {}, 1, "1/1058", "none"},
        {"none", 0, {1}, 4, "1/1003", "1/1003"},        {"none", 0, {2, 4}, 1, "none", "none"},
        {"none", 0, {2, 2, 1}, 1, "1/31", "none"},      {"none", 0, {}, 1, "1/6", "none"},
        {"control", 1062, {4}, 1, "none", "none"},      {"control", 1061, {4, 1}, 3, "none", "none"},
        {"control", 1061, {4, 4}, 3, "none", "1/31"},   {"control", 1061, {4}, 2, "none", "1/1003"},
        {"control", 1051, {4}, 1, "none", "1/1051"},    {"control", 1052, {4}, 1, "none", "1/1052"},
    };
    for (const auto& each : cases) {
        RecordingServiceManager manager;
        manager.queriedStates = each.states;
        manager.stateAfterControl = each.afterControl;
        manager.failures[each.call] = each.error;
        EXPECT_EQ(failureOf([] { KestServiceControlWin("s").StartServiceA(); }), each.started) << each.call;
        EXPECT_EQ(failureOf([] { KestServiceControlWin("s").StopService(); }), each.stopped) << each.call << each.error;
        EXPECT_EQ(manager.openHandles(), 0u) << each.call;
    }
    RecordingServiceManager manager;
    for (const char* call : {"queryConfiguration", "changeConfiguration", "openService"}) {
        manager.failures[call] = 5;
        KestServiceControlWin service("s");
        EXPECT_EQ(failureOf([&] { service.SetServiceStartType(2); }) == "none", call[0] == 'q');
        EXPECT_EQ(failureOf([&] { service.GetServiceStartType(); }), "1/5");
        EXPECT_EQ(failureOf([&] { service.IsServiceInstalled(); }) == "none", call[0] != 'o');
    }
}

TEST(ServiceControl, CopiesShareTheConnection) {
    RecordingServiceManager manager;
    manager.failures["queryConfiguration"] = 5;
    KestServiceControlWin other("other");
    {
        KestServiceControlWin first("first");
        EXPECT_EQ(failureOf([&] { first.GetServiceStartType(); }), "1/5");
        EXPECT_EQ(manager.openHandles(), 3u) << "a failed operation leaves its handle open";
        const KestServiceControlWin copy(first);
        other = copy;
        other = *&other;
        EXPECT_EQ(manager.openHandles(), 2u) << "the unused connection is closed";
    }
    EXPECT_EQ(manager.openHandles(), 1u);
    EXPECT_TRUE(other.IsServiceInstalled());
    EXPECT_EQ(manager.calls().back(), "openService first 4");
}

class HostedService : public KestService {
  public:
    explicit HostedService(const std::string& name, const std::string& arguments = "")
        : KestService("app", name, "A hosted service", "", false) {
        m_arguments = arguments;
    }

  protected:
    bool startIt(const std::string& arguments) override {
        getEventObject().addDependent(m_listener);
        note("start <" + arguments + "> in " + std::to_string(state()));
        std::this_thread::sleep_for(std::chrono::milliseconds(arguments == "slow " ? 1200 : 0));
        if (arguments == "throw ") throw KestException("no port", 98);
        return arguments != "fail ";
    }
    bool stopIt() override {
        note("stop in " + std::to_string(state()));
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        return true;
    }

  private:
    static void note(const std::string& what) { std::ofstream("trace", std::ios::app) << what << ", "; }

    struct Listener : KestDependent {
        void handleNotification(KestCollaborator&, const KestNotification&) override { note("notified"); }
    } m_listener;
};
const kit::ChildRole hosted("hosted", [](const Texts&) { return HostedService("").start("", true) ? 0 : 1; });
const kit::ChildRole installs("installs", [](const Texts& arguments) {
    return HostedService(arguments.at(0), arguments.at(1)).install() ? 0 : 1;
});

using HostedServiceTest = kit::ServiceFixture;

TEST_F(HostedServiceTest, RunsFromInstallToRemove) {
    namespace fs = std::filesystem;
    const fs::path own = *kit::platform::programPath(), folder = state.pathOf("a b"), program = folder / own.filename();
    fs::create_directory(folder);
    for (const auto& each : fs::directory_iterator(own.parent_path())) {
        if (each.path() == own || each.path().extension() == ".dll")
            fs::copy_file(each, folder / each.path().filename());
    }
    const std::string name = named("hosted"), arguments = argumentsOf("hosted");
    EXPECT_EQ(kit::ChildProcess(program.string(), {"--child-role=installs", name, arguments}).wait(), 0);
    Configuration installed;
    Opened("hosted").call(&Manager::queryConfiguration, installed);
    EXPECT_EQ(installed.commandLine, kit::platform::quoteArgument(program.string()) + " " + arguments);
    KestServiceControlWin service(name);
    service.StartServiceA();
    EXPECT_EQ(service.GetServiceStatus(), 4u);
    service.StopService();
    EXPECT_EQ(service.GetServiceStatus(), 1u);
    EXPECT_EQ(run("start hosted slow; tell hosted"), "0 2/0/0p");
    EXPECT_EQ(failureOf([&] { service.StopService(); }), kit::kStopOfStartingServiceFails);
    service.StartServiceA();
    EXPECT_EQ(run("tell hosted; control hosted 2; control hosted 4; control hosted 1; await hosted 1; tell hosted"),
              "4/1/0p 1052/4 0/4 0/3 1/1/0");
    // Of a service that stops at once, Wine's manager may report that it did not answer.
    run("start hosted throw; await hosted 1");
    EXPECT_EQ(run("tell hosted"), "1/1/1064");
    const auto failureText = [] {
        std::string failure;
        EXPECT_EQ(Opened("hosted").call(&Manager::queryFailureText, failure), kit::servicesAreOfTheTest() ? 0u : 120u);
        return failure;
    };
    EXPECT_EQ(failureText(), kit::servicesAreOfTheTest() ? "startIt threw no port (code 98)" : "");
    run("start hosted fail; await hosted 1");
    EXPECT_EQ(run("tell hosted; start hosted; await hosted 4"), "1/1/0 0");
    EXPECT_EQ(failureText(), "");
    EXPECT_TRUE(HostedService(name).remove()) << "stops the service";
    EXPECT_EQ(service.GetServiceStatus(), 0u);
    EXPECT_EQ(state.read("trace"),
              "start <> in 4, notified, stop in 3, start <slow > in 4, notified, stop in 3, start <throw > in 4, "
              "notified, start <fail > in 4, notified, start <> in 4, notified, stop in 3, ");
}

}  // namespace
