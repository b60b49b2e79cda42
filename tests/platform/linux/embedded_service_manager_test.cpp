// What is special to the embedded service manager, and the order of starts.
#include "platform/service_manager.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <regex>
#include <tuple>

#include "kit/failing_calls.h"
#include "platform/service_roles.h"
#include "platform/services/channel.h"
#include "platform/services/output.h"
#include "platform/start_order.h"

namespace {

namespace fs = std::filesystem;

struct ServiceManagerTest : kit::ServiceFixture {
    static std::string listed() {
        std::string all;
        for (const ServiceEntry& each : list())
            all += each.name + " " + std::to_string(each.error) + ",";
        return all;
    }
};

bool matches(const std::string& text, const char* pattern) {
    return std::regex_match(text, std::regex(pattern));
}

const kit::ChildRole moreRoles[] = {
    {"hard", dispatch<serve<kServiceRunning, 0>>},
    {"starting", dispatch<serve<kServiceStartPending, 0>>},
    {"brief", dispatch<[](const Texts&) {
         g_status = serviceManager().registerControlHandler("", [](std::uint32_t) { report(kServiceStopped); });
         report(kServiceRunning);
     }>},
    {"starter", [](const Texts& arguments) { return std::stoi(kit::ServiceFixture::run("start " + arguments.at(0))); }},
    // Its child runs until the test ends.
    {"forking", dispatch<[](const Texts& arguments) {
         if (::fork() != 0) return serve<>(arguments);
         kit::await([] { return !fs::exists("services"); });
         ::_exit(0);
     }>},
    {"stranger",
     [](const Texts&) -> int {
         if (kit::ChildProcess::isRoot() && ::setuid(65534) != 0) return 5;  // a container may forbid it
         ::_exit(static_cast<int>(kit::ServiceFixture::Opened().error));
     }},
    // Its arguments: the step that fails, from which time on, once or always; more of them fill its output first.
    {"troubled", [](const Texts& arguments) {
         const bool always = arguments.at(2) == "always";
         if (arguments.size() > 3) std::printf("%01048576d", 0), std::fflush(stdout);
         const kit::FailingCalls calls(arguments[0].c_str(), std::stoi(arguments[1]), always, EMFILE);
         return dispatch<serve<>>({});
     }}};

TEST_F(ServiceManagerTest, KeepsAnyNameAndTheRestart) {
    Configuration wanted{"a %b..", "Shown\nas", 0x110, 3, 2, "/bin/x", std::string("one\0two\0", 8)};
    ASSERT_EQ(create(wanted), 0u);
    const std::string longest(256, 'n');
    EXPECT_EQ(run("create plain plain; create .hidden plain; create " + longest + " plain"), "0 0 0");
    const Opened service(wanted.name);
    ASSERT_EQ(service.call(&Manager::changeConfiguration, ServiceChange{.restart = 2}), 0u);
    Configuration read;
    ASSERT_EQ(service.call(&Manager::queryConfiguration, read), 0u);
    wanted.restart = 2;
    EXPECT_EQ(read, wanted);
    EXPECT_EQ(listed(), ".hidden 0,a %b.. 0," + longest + " 0,plain 0,");
    EXPECT_EQ(state.read("services/plain/configuration").find("restart"), std::string::npos) << "readable as before";
}

TEST_F(ServiceManagerTest, RefusesInvalidServices) {
    EXPECT_EQ(run("create there plain; create there plain; create self plain self; type there 9"), "0 1073 1059 87");
    const std::string longest(256, 'n');
    for (const std::string& name : Texts{"", "a/b", "a\\b", "a\nb", "a\x7F", "../up", longest + "n"})
        EXPECT_EQ(create({name, "", 16, 2, 1, "p", ""}), 123u) << name;
    EXPECT_EQ(Opened("../there").error, 123u);
    const std::string tooLong(32768, 'p'), nul(2, '\0');
    const Configuration wrong[] = {
        {"type", "", 1, 2, 1, "p", ""},      {"start", "", 16, 1, 1, "p", ""}, {"start", "", 16, 5, 1, "p", ""},
        {"error", "", 16, 2, 4, "p", ""},    {"none", "", 16, 2, 1, "", ""},   {"long", "", 16, 2, 1, tooLong, ""},
        {"needs", "", 16, 2, 1, "p", "a/b"}, {"nul", "", 16, 2, 1, nul, ""},   {"again", "", 16, 2, 1, "p", "", 3}};
    for (const Configuration& each : wrong)
        EXPECT_EQ(create(each), 87u) << each.name;
    EXPECT_EQ(listed(), "there 0,");
}

TEST_F(ServiceManagerTest, ChecksTheAccessOfHandles) {
    ASSERT_EQ(run("create s plain"), "0");
    const Opened manager;
    ServiceManager& services = serviceManager();
    Status status;
    Configuration configuration;
    std::vector<unsigned short> text;
    std::string failure;
    ServiceRun lastRun;
    std::unique_ptr<ServiceOutput> output;
    using Handle = Manager::Handle;
    using Errors = std::vector<ErrorCode>;
    const auto callAll = [&](Handle service) {
        Errors errors = {services.queryConfiguration(service, configuration),
                         services.queryDescription(service, text),
                         services.changeConfiguration(service, {.startType = 4}),
                         services.setDescription(service, text),
                         services.queryStatus(service, status),
                         services.queryFailureText(service, failure),
                         services.queryRun(service, lastRun),
                         services.openOutput(service, output),
                         services.noteProcessEnd(service, 1, 0)};
        for (const std::uint32_t code : {1, 2, 4, 128})
            errors.push_back(services.control(service, code, status));
        errors.push_back(services.startService(service, {}));
        errors.push_back(services.endService(service));
        errors.push_back(services.deleteService(service));
        return errors;
    };
    EXPECT_EQ(callAll(nullptr), Errors(16, 6));
    EXPECT_EQ(callAll(manager.handle), Errors(16, 6));
    // By the call: the access that it requires, and its result with that access.
    const std::pair<std::uint32_t, ErrorCode> calls[] = {
        {0x1, 0},  {0x1, 0},     {0x2, 0},     {0x2, 0},     {0x4, 0},      {0x4, 0},     {0x4, 0},     {0x4, 0},
        {0x20, 0}, {0x20, 1062}, {0x40, 1062}, {0x80, 1062}, {0x100, 1062}, {0x10, 1058}, {0x24, 1062}, {0x10000, 0}};
    for (const auto& [given, ignored] : calls) {
        Errors expected;
        for (const auto& [access, result] : calls)
            expected.push_back((access & given) == access ? result : 5);
        EXPECT_EQ(callAll(Opened("s", given).handle), expected) << given;
    }
    Handle none = nullptr;
    Handle service = &none;
    std::vector<ServiceEntry> all;
    const Errors errors = {services.openManager(0, none), services.enumerateServices(none, all),
                           services.createService(none, configuration, 0, service),
                           services.openService(none, "s", 0, service)};
    EXPECT_EQ(errors, (Errors{0, 5, 5, 5}));
    EXPECT_EQ(service, nullptr);
    services.closeHandle(none);
}

TEST_F(ServiceManagerTest, ReportsWhyAStartFails) {
    ASSERT_EQ(run("create s plain"), "0");
    const std::string text = joinArguments({state.write("text", "no program")});
    fs::permissions(state.pathOf("text"), fs::perms::owner_all);
    const std::pair<std::string, std::string> starts[] = {
        {"/bin/false", "0 1067 1/0/1067"},
        {"/bin/sleep 100", "0 1053 1/0/1053"},
        {"troubled sendMessage 1 always", "0 1067 1/0/1067"},
        {"/not/there", "0 2 1/0/2"},
        {text, "0 193 1/0/193"},
        {joinArguments({state.path()}), "0 5 1/0/5"},
        {"/bin/sh -c 'sleep 100 & echo $! >child'", "0 1067 1/0/1067"}};
    for (const auto& [command, told] : starts) {
        kit::EnvironmentGuard timeout;
        if (command == "/bin/sleep 100") timeout.set("KEST_SERVICE_TIMEOUT", "300");
        EXPECT_EQ(run("line s " + command + "; start s; await s 1; tell s"), told) << command;
    }
    const std::string child = "/proc/" + std::to_string(std::stoi(state.read("child"))) + "/stat";
    kit::await([&] { return !matches(state.read(child), "\\d+ .sleep. [^ZX][^]*"); });
    EXPECT_EQ(run("start s " + std::string(70'000, 'a') + "; type s 4; start s; type s 3"), "87 0 1058 0");
    EXPECT_EQ(serviceManager().registerControlHandler("us", onControl), nullptr);
    EXPECT_EQ(serviceManager().setStatus(nullptr, {}), 6u);

    fs::create_directory(state.pathOf("a b c"));
    fs::permissions(state.write("a", "another user's"), fs::perms::owner_all);
    fs::create_symlink(fs::read_symlink("/proc/self/exe"), state.pathOf("a b c/d"));
    EXPECT_EQ(run("line s " + state.pathOf("a b c/d") + " --child-role=plain; start s"), "0 0") << "blanks";
}

TEST_F(ServiceManagerTest, StopsAnUnansweredStart) {
    ASSERT_EQ(run("create s plain"), "0");
    const std::string never = "/bin/sleep 100";
    const std::string deaf = "/bin/sh -c 'trap \"\" TERM && sleep 100'";
    for (const auto& [program, request, killed, result] : {std::tuple{never, "control s 1", false, "0/1"},
                                                           {never, "control s 1", true, "0/1"},
                                                           {deaf, "control s 1", false, "0/1"},
                                                           {deaf, "kill s", true, "0"},
                                                           {never, "remove s; control s 1", true, "0 0/1"}}) {
        ASSERT_EQ(run("line s " + program), "0");
        kit::ChildProcess starter = kit::ChildProcess::inRole("starter", {"s"});
        // Until the starter knows the program, the program's parent is a fork of the starter, which would kill it.
        kit::await([&] {
            const std::uint32_t process = query("s").processId;
            if (process == 0) return false;
            const std::string status = state.read("/proc/" + std::to_string(process) + "/status");
            const int parent = std::stoi(status.substr(status.find("PPid:") + 5));
            return state.read("/proc/" + std::to_string(parent) + "/cmdline").find("starter") == std::string::npos;
        });
        if (killed) starter.kill();
        EXPECT_EQ(run("tell s; control s 2; start s"), "2/0/0p 1061/2 1056");
        EXPECT_EQ(run(request), result) << program;
        EXPECT_EQ(starter.wait(), killed ? -SIGKILL : 1067 % 256);
    }
    EXPECT_EQ(run("create s plain; kill s; start s; kill s; tell s"), "0 1062 0 0 1/0/1067");
}

TEST_F(ServiceManagerTest, IgnoresForkedChildren) {
    EXPECT_EQ(run("create f forking; start f; await f 4; control f 1"), "0 0 0/1");
    EXPECT_EQ(run("start f; await f 4; end f; control f 1; start f"), "0 1062/1 0");
}

TEST_F(ServiceManagerTest, StartsWithDefaultProcessSettings) {
    ASSERT_EQ(run("create s plain"), "0");
    kit::ChildProcess starter(fs::read_symlink("/proc/self/exe"), {"--child-role=starter", "s"},
                              {"", "umask 077; trap '' HUP; renice -n 3 $$ >/dev/null", false});
    EXPECT_EQ(starter.wait(), 0) << starter.errors();
    const std::uint32_t process = query("s").processId;
    const std::string status = state.read("/proc/" + std::to_string(process) + "/status");
    EXPECT_TRUE(matches(status, "[^]*\nUmask:\t0022\n[^]*\nSigIgn:\t\\w*0\n[^]*")) << "SIGHUP is in the last digit";
    bool mayRaise = false;
    std::thread([&] {
        mayRaise = ::setpriority(PRIO_PROCESS, 0, 19) == 0 && ::setpriority(PRIO_PROCESS, 0, 0) == 0;
    }).join();
    EXPECT_EQ(::getpriority(PRIO_PROCESS, process), mayRaise ? 0 : std::max(3, ::getpriority(PRIO_PROCESS, 0)));
}

// The service has too many callers, and signals arrive more often than the wait is long.
TEST_F(ServiceManagerTest, ConnectTimesOutDespiteSignals) {
    const Result<Folder> folder = Folder::open(state.path());
    std::optional<Result<Listener>> listener(Listener::make(*folder, "s"));
    ASSERT_EQ(listener->error(), errorSuccess);
    std::vector<Result<Channel>> callers;
    while (callers.empty() || callers.back())
        callers.push_back(Channel::connect(*folder, "s", 10));
    const auto before = std::signal(SIGALRM, [](int) {});
    const itimerval often{{0, 20'000}, {0, 20'000}}, never{};
    ::setitimer(ITIMER_REAL, &often, nullptr);
    EXPECT_EQ(Channel::connect(*folder, "s", 200).error(), errorServiceRequestTimeout);
    ::setitimer(ITIMER_REAL, &never, nullptr);
    std::signal(SIGALRM, before);
    listener.reset();
    EXPECT_EQ(callers.front()->send("to a listener that has not accepted"), errorBrokenPipe);
}

TEST_F(ServiceManagerTest, CleansUpAfterDeathAndDeletion) {
    EXPECT_EQ(run("create m plain; start m; end m; tell m; control m 1; start m"), "0 0 1/0/1067 1062/1 0");
    EXPECT_EQ(run("await m 4; remove m; remove m; start m; type m 3; create m plain"), "0 1072 1072 1072 1072");
    EXPECT_EQ(run("tell m; control m 1; tell m"), "4/3/0p 0/1 1060");
    kit::await([&] { return fs::is_empty(state.pathOf("services")); });
    EXPECT_EQ(run("create m plain; tell m"), "0 1/0/1077");
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(run("create r brief; start r; await r 4"), "0 0");
        std::thread stop([] { run("control r 1"); });
        run("remove r");
        stop.join();
        kit::await([&] { return !fs::exists(state.pathOf("services/r")); });
    }
}

TEST_F(ServiceManagerTest, StopsOnSupervisorRequest) {
    EXPECT_EQ(run("create s plain; create h hard; start s; start h; await s 4; await h 4"), "0 0 0 0");
    for (const std::string name : {"s", "h"})
        kit::ChildProcess::requestEnd(query(name).processId);
    EXPECT_EQ(run("await s 1; tell s; await h 1; tell h; start s; await s 4"), "1/0/7 1/0/1067 0");
    state.write("throw once", "");
    EXPECT_EQ(run("control s 1; tell s; control s 1; start s; await s 4"), "1064/0 4/3/0p 0/1 0") << "tried again";
    state.write("throw once", "");
    EXPECT_EQ(run("control s 200; control s 1; tell s"), "1064/0 1064/0 4/3/0p");
    kit::ChildProcess::requestEnd(query("s").processId);
    EXPECT_EQ(run("await s 1; tell s; line s starting; start s; control s 1"), "1/0/7 0 0 1061/2");
}

TEST_F(ServiceManagerTest, StartsDependenciesFirst) {
    EXPECT_EQ(run("create top plain base mid; start top; create base plain; create mid plain base; needs base top"),
              "0 1075 0 0 1059");
    EXPECT_EQ(run("start top; tell base; tell mid; control base 1; await top 4; control top 1; control mid 1"),
              "0 4/3/0p 4/3/0p 1051/0 0/1 0/1");
    EXPECT_EQ(run("control base 1; line base /not/there; start top; tell mid"), "0/1 0 1068 1/0/7")
        << "mid is not tried";
    std::vector<Configuration> all;
    for (const auto& [name, needed, type] :
         {std::tuple{"a", "m", 2u}, {"m", "z", 3u}, {"z", "", 2u}, {"o", "p", 2u}, {"p", "o", 2u}, {"l", "none", 2u}})
        all.push_back({name, "", 16, type, 1, "p", needed});
    EXPECT_EQ(autoStartOrder(all), (Texts{"z", "a", "p", "o", "l"}));
}

TEST_F(ServiceManagerTest, IsolatesDamagedFiles) {
    EXPECT_EQ(run("create good plain; create torn plain; create other plain; create piped plain"), "0 0 0 0");
    const std::string whole = state.read("services/torn/configuration");
    for (const std::string& bytes : {whole.substr(0, whole.size() - 1), std::string(200'000, 'x'), whole + "more\n",
                                     std::string(), "x\n" + whole, state.read("services/other/configuration")}) {
        state.write("services/torn/configuration", bytes);
        EXPECT_EQ(run("start torn"), "13") << bytes.substr(0, 40);
    }
    state.write("services/stray", "");
    fs::create_directory(state.pathOf("services/empty"));
    fs::create_directory(state.pathOf("services/other/status"));
    ASSERT_EQ(::mkfifo(state.pathOf("services/torn/status").c_str(), 0600), 0);
    fs::remove(state.pathOf("services/piped/configuration"));
    fs::create_symlink("../good/configuration", state.pathOf("services/piped/configuration"));
    EXPECT_EQ(listed(), "good 0,other 13,piped 13,torn 13,");
    state.write("services/torn/configuration", whole);
    EXPECT_EQ(run("tell torn; start torn"), "13 13") << "the status is a pipe";
    fs::rename(state.pathOf("services/piped"), state.pathOf("kept"));
    fs::create_symlink("../kept", state.pathOf("services/piped"));
    EXPECT_EQ(run("tell piped; start piped; create piped plain; remove piped; tell piped"), "13 13 13 0 1060");
    EXPECT_TRUE(fs::is_symlink(state.pathOf("kept/configuration"))) << "a link is not followed";
    state.write("services/good/status", "a foreign text");
    state.write("services/good/socket", "");
    EXPECT_EQ(run("start other; remove torn; tell good; start good; await good 4"), "13 0 1/0/1067 0");
    state.write("services/good/status", "a foreign text");
    EXPECT_EQ(run("tell good; control good 2; tell good"), "13 0/7 7/3/0p") << "a report mends the record";
    fs::create_symlink("../kept", state.pathOf("services/piped"));
    const kit::FailingCalls openat2("openFile", 1, false, ENOSYS);
    EXPECT_EQ(run("tell piped; remove piped"), "13 0") << "without openat2";
}

TEST_F(ServiceManagerTest, AdmitsTheOwnerOnly) {
    ASSERT_EQ(run("create mine plain"), "0");
    EXPECT_EQ(fs::status(state.pathOf("services")).permissions(), fs::perms::owner_all);
    fs::permissions(state.path(), fs::perms::all);
    if (!kit::ChildProcess::isRoot()) environment.set("KEST_STATE_DIR", "/usr");
    EXPECT_EQ(kit::ChildProcess::inRole("stranger").wait(), 5);
    environment.set("KEST_STATE_DIR", state.path());
    fs::permissions(state.pathOf("services"), fs::perms::all);
    EXPECT_EQ(Opened().error, 5u) << "any user could have put a service there";
    fs::permissions(state.pathOf("services"), fs::perms::owner_all);
    environment.set("KEST_STATE_DIR", state.write("file", ""));
    EXPECT_EQ(Opened().error, 3u);
    environment.set("KEST_STATE_DIR", state.path());
}

TEST_F(ServiceManagerTest, KeepsTheLastRun) {
    const auto lastRun = [](const std::string& name) {
        ServiceRun last;
        EXPECT_EQ(Opened(name).call(&Manager::queryRun, last), 0u);
        return last;
    };
    ASSERT_EQ(run("create s plain"), "0");
    EXPECT_EQ(lastRun("s"), ServiceRun());
    EXPECT_EQ(run("start s; await s 4"), "0");
    ServiceRun expected = lastRun("s");
    EXPECT_EQ(expected.processId, query("s").processId);
    EXPECT_GT(expected.started, 0);
    EXPECT_EQ(expected.ended, 0);
    EXPECT_EQ(run("end s"), "");
    EXPECT_EQ(lastRun("s"), expected) << "nothing has seen the end";
    const Opened service("s");
    EXPECT_EQ(service.call(&Manager::noteProcessEnd, expected.processId + 1, -9), 0u);
    EXPECT_EQ(lastRun("s"), expected) << "another process";
    EXPECT_EQ(service.call(&Manager::noteProcessEnd, expected.processId, -9), 0u);
    EXPECT_EQ(lastRun("s").exitCode, -9);
    for (const std::string request : {"control s 1", "kill s"}) {
        EXPECT_EQ(run("start s; await s 4; " + request).substr(0, 3), "0 0");
        kit::await([&] { return lastRun("s").ended != 0; });
        expected = lastRun("s");
        EXPECT_TRUE(expected.endRequested && expected.ended >= expected.started) << request;
    }
    state.write("services/s/run", "damage");
    ServiceRun damaged;
    EXPECT_EQ(service.call(&Manager::queryRun, damaged), 13u);
}

TEST_F(ServiceManagerTest, BeginsANewOutputFileDespiteFailures) {
    for (const std::string step : {"renameFile 1", "openFile 4", "fileFacts 6"}) {
        EXPECT_EQ(run("create s plain; line s troubled " + step + " once loud; start s"), "0 0 0");
        kit::await([&] { return fs::exists(state.pathOf("services/s/output.old")); });
        kit::await([&] { return fs::exists(state.pathOf("services/s/output")); });
        EXPECT_EQ(fs::file_size(state.pathOf("services/s/output.old")), kOutputLimit) << step;
        EXPECT_EQ(fs::file_size(state.pathOf("services/s/output")), 0u) << step;
        EXPECT_EQ(run("end s; remove s"), "0");
    }
}

TEST_F(ServiceManagerTest, ReadsOutputAcrossFiles) {
    OutputReader reader(std::move(*Folder::open(state.path())));
    const auto read = [&](int times) {
        std::string text;
        for (bool mayMiss = false; times > 0; --times) {
            EXPECT_EQ(reader.read(text, mayMiss), 0u);
            if (mayMiss) text += "!";
        }
        return text;
    };
    const auto append = [&](const char* name, const char* text) {
        std::ofstream(state.pathOf(name), std::ios::app) << text;
    };
    const auto rotate = [&] { fs::rename(state.pathOf("output"), state.pathOf("output.old")); };
    EXPECT_EQ(read(1), "");
    append("output", "1 ");
    EXPECT_EQ(read(1), "1 ");
    append("output", "2 ");
    rotate();
    append("output", "4 ");
    EXPECT_EQ(read(2), "2 ");
    append("output.old", "3 ");
    EXPECT_EQ(read(2), "3 4 ") << "a write that was under way";
    rotate();
    append("output", "5 ");
    rotate();
    append("output", "6 ");
    EXPECT_EQ(read(4), "5 !6 ") << "it cannot know whether there was a third file";
}

// Each step at the fault seam fails, once or permanently: in the client, and in the service's process.
TEST_F(ServiceManagerTest, SurvivesEachFailingCall) {
    environment.set("KEST_SERVICE_TIMEOUT", "1000");
    ASSERT_EQ(run("create bystander plain; start bystander"), "0 0");
    // The service reports that it runs some time after its start, so its control is a part of its own.
    const char* const parts[][3] = {{"", "create s plain; start s; type s 3", "0 0 0"},
                                    {"create s plain; start s; await s 4", "control s 1; remove s", "0/1 0"}};
    for (const std::string how : {"once", "always"}) {
        for (const auto& [before, counted, expected] : parts) {
            bool failed = true;
            for (int first = 1; failed; ++first) {
                std::string results;
                run(before);
                {
                    const kit::FailingCalls calls("", first, how == "always", EMFILE);
                    results = run(counted);
                    failed = kit::FailingCalls::seen() >= first;
                }
                EXPECT_TRUE(matches(results, failed ? "(0 )*(4( .*|/0 .*|)|0/1 .*|0)" : expected))
                    << counted << first << results;
                run("end s; remove s");
                ASSERT_EQ(run("tell s"), "1060") << first << how;
            }
        }
        for (int first = 1; first <= 36; ++first) {
            ASSERT_EQ(run("create t plain; line t troubled '' " + std::to_string(first) + " " + how), "0 0");
            const std::string started = run("start t");
            EXPECT_TRUE(matches(started, "0|4|1054|1067")) << first << started;
            if (started == "0" && how == "once") run("await t 4");  // also when the first write of the record failed
            ASSERT_EQ(run("control t 1; end t; remove t").back(), '0') << first << how;
        }
    }
    EXPECT_EQ(run("control bystander 4"), "0/4");
}

}  // namespace
