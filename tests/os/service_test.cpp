// Tests KestService in console mode and in service mode, install and remove, with a recording manager.
#include "support/service.h"

#include <algorithm>
#include <cerrno>
#include <functional>
#include <regex>
#include <stdexcept>

#include "kit/child_process.h"
#include "kit/failing_calls.h"
#include "kit/gate.h"
#include "kit/log_capture.h"
#include "kit/recording_service_manager.h"
#include "kit/system.h"
#include "platform/process.h"
#include "platform/program_path.h"
#include "support/exceptions.h"

namespace {

using namespace KestSupport;
using kit::RecordingServiceManager;
using Texts = std::vector<std::string>;

// Controls of the manager.
constexpr std::uint32_t kStop = 1;
constexpr std::uint32_t kInterrogate = 4;
constexpr std::uint32_t kParameterChange = 6;

class TestService : public KestService {
  public:
    TestService() = default;
    TestService(bool interactive, const std::string& dependencies) : KestService(interactive, dependencies) {}
    explicit TestService(const std::string& name) : KestService("app", name, "The service", "first", true) {}

    std::function<bool()> onStart = [] { return true; };
    std::function<bool()> onStop = [] { return true; };
    Texts heard;

    void describe(const std::string& text) { m_description.assign(text.begin(), text.end()); }
    void addArguments(const std::string& text) { m_arguments = text; }
    using KestService::acceptReload;
    using KestService::getEventObject;
    using KestService::getStatusHandle;
    using KestService::ReportStatusToSCMgr;

  protected:
    bool startIt(const std::string& arguments) override {
        heard.push_back("start <" + arguments + "> in " + std::to_string(state()));
        return onStart();
    }
    bool stopIt() override {
        heard.push_back("stop in " + std::to_string(state()));
        return onStop();
    }
};

bool fail() {
    throw KestException(7);
}

// Starts the service, and calls `work` on another thread while it runs. Returns the result of start.
bool runWith(TestService& service, RecordingServiceManager& manager, bool asService,
             const std::function<void()>& work) {
    std::thread other([&] {
        if (asService) manager.awaitReport(KestService::RUNNING);
        kit::await([&] { return service.state() == KestService::RUNNING; });
        work();
    });
    const bool started = service.start("not used", asService);
    other.join();
    return started;
}

TEST(ServiceConsole, RunsUntilStopped) {
    RecordingServiceManager manager;
    TestService service;
    EXPECT_EQ(KestService::getService(), &service);
    EXPECT_EQ(service.state(), KestService::STOPPED);
    EXPECT_EQ(service.getStatusHandle(), nullptr);
    service.onStop = [&] { return service.stop(); };  // too late for this run; must not end the next one
    for (int run = 0; run < 2; ++run) {
        kit::Gate returned;
        std::thread other([&] {
            kit::await([&] { return service.state() == KestService::RUNNING || returned.passWithin({}); });
            EXPECT_TRUE(service.start("", false));
            EXPECT_TRUE(service.ReportStatusToSCMgr(4, 0, 0));
            EXPECT_FALSE(returned.passWithin(std::chrono::milliseconds(50))) << run;
            service.stop();
        });
        EXPECT_TRUE(service.start("", false));
        returned.open();
        other.join();
    }
    EXPECT_EQ(service.heard, (Texts{"start <> in 1", "stop in 3", "start <> in 1", "stop in 3"}));
    EXPECT_EQ(service.state(), KestService::STOPPED);
    EXPECT_EQ(manager.reports(), Texts{});
    EXPECT_EQ(manager.calls(), Texts{});
}

struct Objector : KestDependent {
    void handleNotification(KestCollaborator&, const KestNotification&) override {
        if (objections-- > 0) throw KestException("not now", 7);
    }
    std::atomic<int> objections{0};
};

TEST(Service, KeepsRunningAfterAFailedStop) {
    for (const bool asService : {false, true}) {
        RecordingServiceManager manager;
        const kit::LogCapture log(1);
        TestService service;
        Objector objector;
        service.getEventObject().addDependent(objector);
        for (int run = asService ? 1 : 0; run < 2; ++run) {  // the manager is for one run
            objector.objections = 1;
            EXPECT_TRUE(runWith(service, manager, asService, [&] {
                const auto request = [&] { asService ? manager.send(kStop) : static_cast<void>(service.stop()); };
                EXPECT_THROW(request(), KestException);
                EXPECT_EQ(service.state(), KestService::RUNNING);
                request();
            }));
        }
        EXPECT_EQ(log.messages(),
                  asService ? Texts{"KestService: a request to stop failed: not now (code 7)"} : Texts{});
        // A start that fails ends although the event cannot be set.
        service.onStart = [&] {
            objector.objections = 1000;
            return false;
        };
        EXPECT_EQ(service.start("", asService), asService);
    }
}

TEST(Service, ReloadsOnRequest) {
    for (const bool asService : {false, true}) {
        RecordingServiceManager manager;
        const kit::LogCapture log(1);
        TestService service;
        std::atomic<int> reloads{0};
        int requests = 0;
        service.acceptReload([&] {
            if (++reloads == 2) throw std::runtime_error("unreadable");
        });
        EXPECT_TRUE(runWith(service, manager, asService, [&] {
            for (const bool byManager : {false, false, false, true}) {
                if (byManager ? !asService : !kit::hangUpThisProgram()) continue;
                if (byManager) manager.send(kParameterChange);
                ++requests;
                kit::await([&] { return reloads == requests; });
            }
            service.stop();
        }));
        EXPECT_EQ(reloads, requests);
        EXPECT_EQ(log.messages(), Texts(requests >= 2, "KestService: a request to reload failed: unreadable"));
        const Texts reports = manager.reports();
        EXPECT_EQ(std::count(reports.begin(), reports.end(), "4 accepted=9 exit=0 hint=0"), asService ? 1 : 0);
    }
}

const kit::ChildRole servedBefore("served before", [](const Texts&) {
    TestService service;
    service.onStart = [&] { return service.stop(); };
    service.start("", false);
    std::puts("returned");
    std::fflush(stdout);
    kit::interruptThisProgram();
    kit::Gate().pass();
    return 0;
});

TEST(ServiceConsole, RestoresTheDefaultInterrupt) {
    kit::ChildProcess child = kit::ChildProcess::inRole("served before", {}, {.terminal = true});
    EXPECT_TRUE(kit::isEndByInterrupt(child.wait()));
    EXPECT_EQ(child.output(), "returned\n");
}

TEST(ServiceConsole, IsStoppedAfterAFailure) {
    TestService service;
    {
        const kit::LogCapture log;
        service.onStart = [&] { return service.stop(); };
        EXPECT_TRUE(service.start("a b", false));
        EXPECT_EQ(log.messages(), (Texts{"KestService::stop: entering", "KestService::stop: exiting",
                                         "KestService::start: waiting for service to exit",
                                         "KestService::start: service completed.", "KestService::start: exiting"}));
    }
    service.onStop = fail;
    for (int failures = 0; failures < 2; ++failures) {
        EXPECT_THROW(service.start("", false), KestException);
        EXPECT_EQ(service.state(), KestService::STOPPED);
        service.onStart = fail;
    }
    service.onStart = [] { return false; };
    EXPECT_FALSE(service.start("", false));
    EXPECT_EQ(service.state(), KestService::STOPPED);
    EXPECT_EQ(service.heard,
              (Texts{"start <a b> in 1", "stop in 4", "start <> in 1", "stop in 4", "start <> in 1", "start <> in 1"}))
        << "a failed start is not stopped";
}

TEST(ServiceMode, ReportsAndLogsItsLife) {
    RecordingServiceManager manager;
    kit::LogCapture log;
    manager.startArguments = {"life", "x", "y"};
    TestService service("life");
    const auto returnLate = [](bool result) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1500));
        return result;
    };
    service.onStart = [&] { return returnLate(true); };
    service.onStop = [&] { return returnLate(false); };
    EXPECT_TRUE(runWith(service, manager, true, [&] {
        manager.send(kInterrogate);
        EXPECT_EQ(service.state(), KestService::RUNNING);
        manager.send(kStop);
    }));
    const Texts messages = log.messages();
    for (const char* line :
         {"KestService::start: calling StartServiceCtrlDispatcher", "KestService::ReportStatusToSCMgr: state=1",
          "service_main: creating WaitForServiceThread", "WaitForServiceThread: waiting for service to exit",
          "service_main: creating ServiceStartThread", "service_main: waiting for ServiceStartThread to exit",
          "ServiceStartThread: calling startIt", "ServiceStartThread: startIt returned with status=1",
          "service_main: ServiceStartThread exited", "service_main: service has started, signaling SCM",
          "WaitForServiceThread: enter: service completed", "WaitForServiceThread: creating ServiceStopThread",
          "WaitForServiceThread: waiting for ServiceStopThread to exit", "ServiceStopThread: calling stopIt",
          "ServiceStopThread: stopIt returned with status=0", "WaitForServiceThread: ServiceStopThread has exited",
          "WaitForServiceThread: stopping service", "KestService::start: StartServiceCtrlDispatcher returned, exiting",
          "KestService::start: exiting"}) {
        EXPECT_EQ(std::count(messages.begin(), messages.end(), line), 1) << line;
    }
    EXPECT_EQ(service.heard, (Texts{"start <x y > in 4", "stop in 3"}));
    EXPECT_EQ(service.state(), KestService::STOPPED);
    EXPECT_EQ(manager.calls(), (Texts{"runDispatcher life", "registerControlHandler life"}));

    // A slow machine may report a pending state more often, never less.
    const Texts reports = manager.reports();
    const std::vector<std::uint32_t> checkPoints = manager.checkPoints();
    Texts kinds;
    std::uint32_t expected = checkPoints.at(0);
    for (std::size_t i = 0; i < reports.size(); ++i) {
        if (i < 3 || reports[i] != reports[i - 1] || reports[i][0] == '4') kinds.push_back(reports[i]);
        const bool pending = reports[i][0] == '2' || reports[i][0] == '3';
        EXPECT_EQ(checkPoints[i], pending ? expected++ : 0u) << i;
    }
    const std::string starting = "2 accepted=0 exit=0 hint=3000";
    EXPECT_EQ(kinds, (Texts{starting, starting, starting, "4 accepted=1 exit=0 hint=0", "4 accepted=1 exit=0 hint=0",
                            "3 accepted=1 exit=0 hint=3000", "1 accepted=1 exit=0 hint=0"}));
    EXPECT_GE(std::count(reports.begin(), reports.end(), "3 accepted=1 exit=0 hint=3000"), 2);
}

TEST(ServiceMode, IsStoppedAfterEachFailure) {
    const auto succeed = [] { return true; };
    const auto refuse = [] { return false; };
    const auto stopIt = [] { return KestService::getService()->stop(); };
    kit::Gate stopped;
    const auto reported = [](char state) {
        const Texts all = static_cast<RecordingServiceManager&>(platform::serviceManager()).reports();
        return std::count_if(all.begin(), all.end(), [&](const std::string& each) { return each[0] == state; });
    };
    // startIt runs longer than stopIt. The service is stopped only after both have ended.
    const auto stopAndWait = [&] {
        stopIt();
        stopped.pass();
        kit::await([&] { return reported('3') > 2 || reported('1') > 0; });
        EXPECT_EQ(reported('1'), 0);
        return true;
    };
    const auto openAndFail = [&] {
        stopped.open();
        return fail();
    };
    const struct {
        const char* managersCall;  // that fails
        int refusedThread;         // counted from 1; 0: none
        std::function<bool()> onStart, onStop;
        std::string states;  // a pattern for the reported states without repetition; "!" for the exit code 1064
        std::size_t heard;   // calls of startIt and stopIt
    } cases[] = {
        {"runDispatcher", 0, succeed, succeed, "", 0},   {"registerControlHandler", 0, succeed, succeed, "", 0},
        {"none", 0, refuse, succeed, "21", 1},           {"none", 0, fail, succeed, "21!", 1},
        {"none", 0, stopAndWait, openAndFail, "231", 2}, {"none", 1, stopIt, succeed, "21", 0},
        {"none", 2, stopIt, succeed, "21", 0},           {"none", 3, stopIt, succeed, "2[34]?1", 1}};
    for (const auto& each : cases) {
        RecordingServiceManager manager;
        const kit::LogCapture log(1);
        manager.failures[each.managersCall] = 1063;
        {
            TestService service("failing");
            service.onStart = each.onStart;
            service.onStop = each.onStop;
            const kit::FailingCalls refused(each.refusedThread > 0 ? "createThread" : "none", each.refusedThread,
                                            false);
            EXPECT_TRUE(service.start("", true)) << each.states;
            EXPECT_EQ(service.state(), KestService::STOPPED) << each.states;
            EXPECT_EQ(service.heard.size(), each.heard) << each.states;
        }
        std::string states;
        for (const std::string& report : manager.reports())
            if (!states.ends_with(report[0])) states += report.substr(0, 1) + (report.find("1064") < 99 ? "!" : "");
        EXPECT_TRUE(std::regex_match(states, std::regex(each.states))) << each.states << ": " << states;
        EXPECT_EQ(log.messages(), each.states == "21!"   ? Texts{"ServiceStartThread: startIt threw  (code 7)"}
                                  : each.states == "231" ? Texts{"ServiceStopThread: stopIt threw  (code 7)"}
                                                         : Texts{});
    }
    TestService unmanaged("here");
    EXPECT_TRUE(unmanaged.start("", true)) << "not started by the platform's manager";
    EXPECT_EQ(unmanaged.heard, Texts{});
}

TEST(ServiceInstall, RegistersTheRunningProgram) {
    const std::string program = platform::quoteArgument(*platform::programPath());
    RecordingServiceManager manager;
    TestService plain;
    plain.describe("what it does");
    EXPECT_TRUE(plain.install());
    TestService full("named");
    full.addArguments("--serve now");
    EXPECT_TRUE(full.install());
    EXPECT_TRUE(TestService(true, "other").install());
    const std::string open = "openManager 983103";
    EXPECT_EQ(manager.calls(),
              (Texts{open, "createService [] [] [" + program + "] [] 983551 16 2 1", "setDescription what it does",
                     open, "createService [named] [The service] [" + program + " --serve now] [first] 983551 272 2 1",
                     open, "createService [] [] [" + program + "] [other] 983551 272 2 1"}));
    EXPECT_EQ(manager.openHandles(), 0u);
}

TEST(ServiceInstall, ReportsEachFailure) {
    const struct {
        std::string call;
        unsigned error;
        bool installed, removed;
    } cases[] = {{"openManager", 120, true, true},     {"openManager", 5, false, false},
                 {"createService", 1073, false, true}, {"createService", 120, false, true},
                 {"openService", 1060, true, false},   {"setDescription", 5, true, true},
                 {"control", 1062, true, true},        {"deleteService", 5, true, false}};
    for (const auto& each : cases) {
        RecordingServiceManager manager;
        kit::LogCapture log;
        manager.failures[each.call] = each.error;
        manager.failures.emplace("control", 1062);
        TestService service("named");
        service.describe("d");
        EXPECT_EQ(service.install(), each.installed) << each.call << each.error;
        EXPECT_EQ(service.remove(), each.removed) << each.call << each.error;
        EXPECT_EQ(manager.openHandles(), 0u) << each.call << each.error;
        const std::string notDescribed = "KestService::install: failed to set service description (5)\n";
        EXPECT_EQ(log.text().find(notDescribed) != std::string::npos, each.call == "setDescription") << each.call;
    }
    RecordingServiceManager manager;
    TestService service("named");
    for (const auto& [error, result] : {std::pair{ENOSYS, true}, {EACCES, false}}) {
        const kit::FailingCalls calls("programPath", 1, true, error);
        EXPECT_EQ(service.install(), result) << error;
    }
    EXPECT_EQ(manager.calls(), Texts{});
}

TEST(ServiceInstall, WaitsForTheStop) {
    RecordingServiceManager manager;
    TestService service("named");
    manager.queriedStates = {3, 1, 3};
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(service.remove());
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));
    EXPECT_EQ(service.state(), KestService::STOPPED);
    EXPECT_EQ(manager.calls(), (Texts{"openManager 983103", "openService named 983551", "control 1", "queryStatus",
                                      "queryStatus", "deleteService"}));
}

}  // namespace
