#include "platform/service_manager.h"

#include <algorithm>
#include <fstream>
#include <functional>
#include <tuple>

#include "kit/failing_calls.h"
#include "kit/recording_service_manager.h"
#include "kit/service_fixture.h"

namespace {

using namespace KestSupport::platform;
using Texts = std::vector<std::string>;
using ServiceManagerTest = kit::ServiceFixture;

std::atomic<ServiceManager::Handle> g_status;

void report(std::uint32_t state, std::uint32_t accepted = 3, std::uint32_t exitCode = 0) {
    serviceManager().setStatus(g_status, {16, state, accepted, exitCode});
}

void onControl(std::uint32_t code) {
    std::ofstream("controls", std::ios::app) << code << "\n";
    if (code == kServiceControlStop) report(kServiceStopped, 0, 7);
    if (code == kServiceControlPause) report(kServicePaused);
    if (code == kServiceControlContinue) report(kServiceRunning);
    if (code == 200) throw 1;
}

// A service that keeps in its working directory what it was given.
template <std::uint32_t state, std::uint32_t accepted, std::uint32_t exitCode = 0>
void serve(const Texts& arguments) {
    std::string heard;
    for (const std::string& each : arguments)
        heard += each + "|";
    std::ofstream("heard") << heard;
    g_status = serviceManager().registerControlHandler("any", onControl);
    report(state, accepted, exitCode);
}
template <ServiceManager::ServiceMain main>
int dispatch(const Texts&) {
    return static_cast<int>(serviceManager().runDispatcher("any", main));
}
const kit::ChildRole roles[] = {
    {"plain", dispatch<serve<kServiceRunning, 3>>},
    {"hard", dispatch<serve<kServiceRunning, 0>>},
    {"starting", dispatch<serve<kServiceStartPending, 0>>},
    {"failing", dispatch<serve<kServiceStopped, 0, 42>>},
    {"silent", dispatch<[](const Texts&) {}>},
    {"throwing", dispatch<[](const Texts&) { throw 1; }>},
    {"ending", [](const Texts&) { return 3; }},
    {"never", [](const Texts&) { return kit::Gate().pass(), 0; }},
    {"stranger",
     [](const Texts&) {
         ServiceManager::Handle manager = nullptr;
         return static_cast<int>(serviceManager().openManager(kServiceManagerConnect, manager));
     }},
    {"troubled", [](const Texts& arguments) {
         const kit::FailingCalls calls("", std::stoi(arguments.at(0)), arguments.at(1) == "for-good", EMFILE);
         return dispatch<serve<kServiceRunning, 3>>({});
     }}};

TEST_F(ServiceManagerTest, KeepsWhatAServiceIsRegisteredWith) {
    const Configuration wanted{"a %b..", "Shown\nas", 0x110, 3, 2, "/bin/x \"y\" \\", std::string("one\0two\0", 8)};
    ASSERT_EQ(create(wanted), 0u);
    for (const std::string& name : {std::string("plain"), std::string(256, 'n'), std::string(".hidden")})
        ASSERT_EQ(create(name, "plain"), 0u);
    ASSERT_EQ(change(wanted.name, {.displayName = "New", .startType = 4}), 0u);
    const Opened service(wanted.name);
    Configuration read;
    ASSERT_EQ(service.call(&Manager::queryConfiguration, read), 0u);
    EXPECT_EQ(std::tie(read.name, read.commandLine, read.dependencies, read.type, read.errorControl),
              std::tie(wanted.name, wanted.commandLine, wanted.dependencies, wanted.type, wanted.errorControl));
    EXPECT_EQ(read.displayName + std::to_string(read.startType), "New4");
    const KestSupport::wstring16 description = {'d', 0x20AC, 0xD83D, 0xDE00, '\n'};
    KestSupport::wstring16 described;
    EXPECT_EQ(service.call(&Manager::setDescription, description), 0u);
    EXPECT_EQ(service.call(&Manager::queryDescription, described), 0u);
    EXPECT_TRUE(described == description);
    std::string names;
    for (const auto& each : list())
        names += each.name.substr(0, 8) + " " + each.displayName + std::to_string(each.status.currentState) + ",";
    EXPECT_EQ(names, ".hidden 1,a %b.. New1,nnnnnnnn 1,plain 1,");
    EXPECT_EQ(tell("plain"), "1 accepted=0 exit=1077");
    EXPECT_EQ(remove("plain"), 0u);
    EXPECT_EQ(tell("plain"), "error 1060");
}

TEST_F(ServiceManagerTest, RefusesWhatIsNotToBeRegistered) {
    ASSERT_EQ(create("there", "plain"), 0u);
    const std::string longest(256, 'n');
    for (const std::string& name : Texts{"", "a/b", "a\\b", "a\nb", "a\x7F", "../up", longest + "n"})
        EXPECT_EQ(create(name, "plain"), 123u) << name;
    EXPECT_EQ(Opened("../there").error, 123u);
    EXPECT_EQ(create("there", "plain"), 1073u);
    EXPECT_EQ(create("self", "plain", "self"), 1059u);
    const std::string long_(32768, 'p');
    const std::tuple<std::uint32_t, std::uint32_t, std::uint32_t, std::string, std::string> wrong[] = {
        {1, 2, 1, "p", ""}, {16, 1, 1, "p", ""},   {16, 5, 1, "p", ""},    {16, 2, 4, "p", ""},
        {16, 2, 1, "", ""}, {16, 2, 1, long_, ""}, {16, 2, 1, "p", "a/b"}, {16, 2, 1, std::string(2, '\0'), ""}};
    for (const auto& [type, startType, errorControl, command, dependencies] : wrong)
        EXPECT_EQ(create({"x", "", type, startType, errorControl, command, dependencies}), 87u) << type << startType;
    EXPECT_EQ(change("there", {.startType = 9}), 87u);
    EXPECT_EQ(list().size(), 1u);
}

TEST_F(ServiceManagerTest, AHandleAllowsWhatItWasOpenedFor) {
    ASSERT_EQ(create("s", "plain"), 0u);
    const Opened manager;
    ServiceManager& services = serviceManager();
    Status status;
    Configuration configuration;
    KestSupport::wstring16 text;
    const auto control = [&](std::uint32_t code) {
        return [&services, &status, code](auto service) { return services.control(service, code, status); };
    };
    const std::tuple<std::uint32_t, ErrorCode, std::function<ErrorCode(Manager::Handle)>> calls[] = {
        {0x1, 0, [&](auto service) { return services.queryConfiguration(service, configuration); }},
        {0x1, 0, [&](auto service) { return services.queryDescription(service, text); }},
        {0x2, 0, [&](auto service) { return services.changeConfiguration(service, {.startType = 4}); }},
        {0x2, 0, [&](auto service) { return services.setDescription(service, text); }},
        {0x4, 0, [&](auto service) { return services.queryStatus(service, status); }},
        {0x10, 1058, [&](auto service) { return services.startService(service, {}); }},
        {0x20, 1062, control(1)},
        {0x40, 1062, control(2)},
        {0x80, 1062, control(4)},
        {0x100, 1062, control(128)},
        {0x10000, 0, [&](auto service) { return services.deleteService(service); }}};
    for (const auto& [access, result, call] : calls) {
        EXPECT_EQ(call(Opened("s", 0xF01FF & ~access).handle), 5u) << access;
        EXPECT_EQ(call(nullptr), 6u) << access;
        EXPECT_EQ(call(manager.handle), 6u) << access;
        EXPECT_EQ(call(Opened("s", access).handle), result) << access;
    }
    Manager::Handle none = nullptr;
    Manager::Handle service = &none;
    std::vector<ServiceEntry> all;
    ASSERT_EQ(services.openManager(0, none), 0u);
    EXPECT_EQ(services.enumerateServices(none, all), 5u);
    EXPECT_EQ(services.createService(none, configuration, 0, service), 5u);
    EXPECT_EQ(services.openService(none, "s", 0, service), 5u);
    EXPECT_EQ(service, nullptr);
    services.closeHandle(none);
}

TEST_F(ServiceManagerTest, AServiceLivesFromItsStartToItsStop) {
    ASSERT_EQ(create("life", "plain"), 0u);
    ASSERT_EQ(start("life", {"x", "", "y z"}), 0u);
    const Status running = awaitState("life", 4);
    EXPECT_EQ(tell("life"), "4 accepted=3 exit=0 process");
    EXPECT_EQ(state.read("heard"), "life|x||y z|");
    EXPECT_EQ(start("life"), 1056u);
    for (const auto& [code, error, after] : std::initializer_list<std::array<std::uint32_t, 3>>{{2, 0, 7},
                                                                                                {4, 0, 7},
                                                                                                {3, 0, 4},
                                                                                                {128, 0, 4},
                                                                                                {6, 1052, 4},
                                                                                                {200, 1064, 0},
                                                                                                {127, 87, 0},
                                                                                                {1, 0, 1},
                                                                                                {1, 1062, 1}}) {
        Status answer;
        EXPECT_EQ(control("life", code, std::move(answer)), error) << code;
        EXPECT_EQ(answer.currentState, after) << code;
    }
    EXPECT_EQ(state.read("controls"), "2\n4\n3\n128\n200\n1\n");
    EXPECT_EQ(tell("life"), "1 accepted=0 exit=7");
    ASSERT_EQ(start("life"), 0u);
    EXPECT_NE(awaitState("life", 4).processId, running.processId);
}

TEST_F(ServiceManagerTest, AStartThatFailsSaysWhy) {
    environment.set("KEST_SERVICE_TIMEOUT", "300");
    for (const auto& [role, error, exitCode] : {std::tuple{"ending", 1067u, "1067"},
                                                {"never", 1053u, "1053"},
                                                {"silent", 0u, "1067"},
                                                {"throwing", 0u, "1064"},
                                                {"failing", 0u, "42"}}) {
        ASSERT_EQ(create(role, role), 0u);
        EXPECT_EQ(start(role), error) << role;
        awaitState(role, 1);
        EXPECT_EQ(tell(role), std::string("1 accepted=0 exit=") + exitCode) << role;
    }
    const std::string text = state.write("text", "no program");
    std::filesystem::permissions(text, std::filesystem::perms::owner_all);
    for (const auto& [program, error] : {std::pair{std::string("/not/there"), 2u}, {text, 193u}, {state.path(), 5u}}) {
        ASSERT_EQ(change("ending", {.commandLine = program}), 0u);
        EXPECT_EQ(start("ending"), error) << program;
        EXPECT_EQ(tell("ending"), "1 accepted=0 exit=" + std::to_string(error));
    }
    ASSERT_EQ(change("silent", {.startType = 4}), 0u);
    EXPECT_EQ(start("silent"), 1058u);
    EXPECT_EQ(start("failing", {std::string(70'000, 'a')}), 87u);
    EXPECT_EQ(serviceManager().runDispatcher("us", serve<4, 3>), 1063u) << "not started by the manager";
    EXPECT_EQ(serviceManager().registerControlHandler("us", onControl), nullptr);
    EXPECT_EQ(serviceManager().setStatus(nullptr, {}), 6u);

    std::filesystem::create_directories(state.pathOf("a b c"));
    std::filesystem::create_symlink(std::filesystem::read_symlink("/proc/self/exe"), state.pathOf("a b c/d"));
    ASSERT_EQ(change("ending", {.commandLine = state.pathOf("a b c/d") + " --child-role=plain"}), 0u);
    EXPECT_EQ(start("ending"), 0u) << "a path with blanks";
}

TEST_F(ServiceManagerTest, AServiceThatDiesOrIsDeletedLeavesNothing) {
    ASSERT_EQ(create("mortal", "plain"), 0u);
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(start("mortal"), 0u);
        end("mortal");
        EXPECT_EQ(tell("mortal"), "1 accepted=0 exit=1067");
        EXPECT_EQ(control("mortal", 1), 1062u);
    }
    ASSERT_EQ(start("mortal"), 0u);
    awaitState("mortal", 4);
    EXPECT_EQ(remove("mortal"), 0u);
    for (const ErrorCode error : {remove("mortal"), start("mortal"), change("mortal", {}), create("mortal", "plain")})
        EXPECT_EQ(error, 1072u);
    EXPECT_EQ(tell("mortal"), "4 accepted=3 exit=0 process");
    EXPECT_EQ(control("mortal", 1), 0u);
    EXPECT_EQ(tell("mortal"), "error 1060");
    kit::await([&] { return std::filesystem::is_empty(state.pathOf("services")); });
    EXPECT_EQ(create("mortal", "plain"), 0u);
}

TEST_F(ServiceManagerTest, ARequestToEndStopsAServiceThatTakesIt) {
    for (const auto& [role, exitCode] : {std::pair{"plain", "7"}, {"hard", "1067"}}) {
        ASSERT_EQ(create(role, role), 0u);
        ASSERT_EQ(start(role), 0u);
        kit::ChildProcess::requestEnd(awaitState(role, 4).processId);
        awaitState(role, 1);
        EXPECT_EQ(tell(role), std::string("1 accepted=0 exit=") + exitCode);
    }
    ASSERT_EQ(create("starting", "starting"), 0u);
    ASSERT_EQ(start("starting"), 0u);
    Status answer;
    EXPECT_EQ(control("starting", 1, std::move(answer)), 1061u);
    EXPECT_EQ(answer.currentState, 2u);
}

TEST_F(ServiceManagerTest, WhatAServiceDependsOnRunsBeforeIt) {
    ASSERT_EQ(create("top", "plain", std::string("base\0mid\0", 9)), 0u);
    EXPECT_EQ(start("top"), 1075u);
    ASSERT_EQ(create("base", "plain"), 0u);
    ASSERT_EQ(create("mid", "plain", "base"), 0u);
    EXPECT_EQ(change("base", {.dependencies = "top"}), 1059u);
    ASSERT_EQ(start("top"), 0u);
    EXPECT_EQ(tell("base") + tell("mid"), "4 accepted=3 exit=0 process4 accepted=3 exit=0 process");
    EXPECT_EQ(control("base", 1), 1051u);
    awaitState("top", 4);
    for (const char* name : {"top", "mid", "base"})
        EXPECT_EQ(control(name, 1), 0u) << name;
    ASSERT_EQ(change("base", {.commandLine = "/not/there"}), 0u);
    EXPECT_EQ(start("top"), 1068u);
    EXPECT_EQ(tell("mid"), "1 accepted=0 exit=7") << "not even tried";

    std::vector<Configuration> all;
    for (const auto& [name, needed, type] :
         {std::tuple{"a", "m", 2u}, {"m", "z", 3u}, {"z", "", 2u}, {"o", "p", 2u}, {"p", "o", 2u}, {"l", "none", 2u}})
        all.push_back({name, "", 16, type, 1, "p", needed});
    EXPECT_EQ(autoStartOrder(all), (Texts{"z", "a", "p", "o", "l"}));
}

TEST_F(ServiceManagerTest, DamagedAndForeignFilesHarmNobodyElse) {
    for (const char* name : {"good", "torn", "other", "piped"})
        ASSERT_EQ(create(name, "plain"), 0u);
    const std::string whole = state.read("services/torn/configuration");
    for (const std::string& bytes : {whole.substr(0, whole.size() - 1), std::string(200'000, 'x'), whole + "more\n",
                                     std::string(), "x\n" + whole, state.read("services/other/configuration")}) {
        state.write("services/torn/configuration", bytes);
        EXPECT_EQ(start("torn"), 13u) << bytes.substr(0, 40);
    }
    state.write("services/stray", "");
    for (const char* folder : {"services/empty", "services/other/status"})
        std::filesystem::create_directory(state.pathOf(folder));
    std::filesystem::remove(state.pathOf("services/piped/configuration"));
    std::filesystem::create_symlink("../good/configuration", state.pathOf("services/piped/configuration"));
    std::string all;
    for (const auto& each : list())
        all += each.name + std::to_string(each.error) + " ";
    EXPECT_EQ(all, "good0 other13 piped13 torn13 ");
    EXPECT_EQ(start("other"), 13u);
    EXPECT_EQ(remove("torn"), 0u);
    state.write("services/good/status", "a foreign text");
    state.write("services/good/socket", "");
    EXPECT_EQ(tell("good"), "1 accepted=0 exit=1067");
    EXPECT_EQ(start("good"), 0u);
    const std::uint32_t process = awaitState("good", 4).processId;
    state.write("services/good/status", "a foreign text");
    EXPECT_EQ(tell("good"), "error 13");
    EXPECT_EQ(control("good", 2), 0u);
    EXPECT_EQ(tell("good"), "7 accepted=3 exit=0 process") << process << ": a report mends the record";
}

TEST_F(ServiceManagerTest, NobodyButTheOwnerGetsIn) {
    ASSERT_EQ(create("mine", "plain"), 0u);
    EXPECT_EQ(std::filesystem::status(state.pathOf("services")).permissions(), std::filesystem::perms::owner_all);
    std::filesystem::permissions(state.path(), std::filesystem::perms::all);
    if (kit::ChildProcess::isRoot()) {
        std::filesystem::copy_file("/proc/self/exe", state.pathOf("program"));
        kit::ChildProcess other("/usr/bin/setpriv", {"--reuid=65534", "--regid=65534", "--clear-groups",
                                                     state.pathOf("program"), "--child-role=stranger"});
        EXPECT_EQ(other.wait(), 5) << other.errors();
    } else {
        environment.set("KEST_STATE_DIR", "/usr");
        EXPECT_EQ(Opened().error, 5u);
        environment.set("KEST_STATE_DIR", state.path());
    }
    std::filesystem::permissions(state.pathOf("services"), std::filesystem::perms::all);
    EXPECT_EQ(Opened().error, 5u) << "anybody could have put a service there";
    std::filesystem::permissions(state.pathOf("services"), std::filesystem::perms::owner_all);
    environment.set("KEST_STATE_DIR", state.write("file", ""));
    EXPECT_EQ(Opened().error, 3u);
    environment.set("KEST_STATE_DIR", state.path());
}

// Each call of the system fails, once or from then on: in the client, and in the service's process.
TEST_F(ServiceManagerTest, AFailingSystemGivesOneErrorAndNothingElseSuffers) {
    environment.set("KEST_SERVICE_TIMEOUT", "1000");
    ASSERT_EQ(create("bystander", "plain"), 0u);
    ASSERT_EQ(start("bystander"), 0u);
    for (const char* how : {"once", "for-good"}) {
        bool failed = true;
        for (int first = 1; failed; ++first) {
            {
                const kit::FailingCalls calls("", first, how[0] == 'f', EMFILE);
                const ErrorCode results[] = {
                    create("s", "plain"),          start("s"), control("s", 4), control("s", 1),
                    change("s", {.startType = 3}), remove("s")};
                failed = kit::FailingCalls::seen() >= first;
                const auto* const error = std::find_if(results, std::end(results), [](auto each) { return each != 0; });
                EXPECT_TRUE(error == std::end(results) || *error == 4 || (*error == 1061 && error == results + 2))
                    << first << ": " << *error;
            }
            end("s");
            remove("s");
            ASSERT_EQ(tell("s"), "error 1060") << first << how;
        }
        for (int first = 1; first <= 24; ++first) {
            const std::string line = kit::ChildProcess::commandOfRole("troubled") + " " + std::to_string(first) + " ";
            ASSERT_EQ(create({"t", "", 16, 2, 1, line + how, ""}), 0u);
            const ErrorCode started = start("t");
            const bool expected = started == 0 || started == 4 || started == 1054 || started == 1067;
            EXPECT_TRUE(expected) << started << " at " << first << how;
            if (started == 0) control("t", 1);
            end("t");
            ASSERT_EQ(remove("t"), 0u) << first << how;
        }
    }
    EXPECT_EQ(control("bystander", 4), 0u);
}

TEST_F(ServiceManagerTest, TheRecordingManagerKeepsTheSameRules) {
    kit::RecordingServiceManager recording;
    EXPECT_EQ(create("s", "plain"), 0u);
    EXPECT_EQ(start("s", {"one"}), 0u);
    recording.failures["openService"] = 1060;
    EXPECT_EQ(remove("s"), 1060u);
    EXPECT_EQ(recording.openHandles(), 0u);
}

}  // namespace
