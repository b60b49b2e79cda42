// Tests the commands of kestsc that show the embedded service manager, on services of this program.
#include <csignal>

#include "kestsc/command_line.h"
#include "tools/kestsc_fixture.h"

namespace {

TEST_F(Kestsc, ShowsServicesOfTheStateDirectory) {
    expect({"status", 0, "No services are installed in " + state.pathOf("services") + ".\n"});
    install("web", "plain",
            "--display 'Gr\u00fc\u00dfe\x1B[2J' '--description=\u202eevil \xff' --start demand --depends a");
    install("a", "plain");
    expect({
        {"list", 0,
         "NAME  STATE    START   PROCESS  SINCE  LAST END       DISPLAY NAME\n"
         "a     stopped  auto    -        -      never started  a\n"
         "web   stopped  demand  -        -      never started  Gr\u00fc\u00dfe\\x1B[2J\n"},
        {"start web", 0, "web: started\n"},
        {"stop a", 7, "", "stop a: other running services depend on the service (1051): web"},
        {"delete web", 0, "web: marked for deletion; it is deleted when it stops\n"},
        {"stop web --no-wait", 0, "web: is stopping\n"},
    });
    kit::await([&] { return run("tell web") == "1060"; });
    expect({{"status web", 4, "", "status web: the service is not installed (1060)"}, {"stop a", 0, "a: stopped\n"}});
    std::filesystem::permissions(state.pathOf("services"), std::filesystem::perms::others_write,
                                 std::filesystem::perm_options::add);
    expect({"list", 5, "", "list: permission denied (5): " + state.pathOf("services")});
}

TEST_F(Kestsc, StartsAndStopsAllInOrder) {
    expect({{"start-all", 0, "No services start automatically.\n"}, {"stop-all", 0, "No services are running.\n"}});
    install("1", "front", "--depends 3,4");
    install("2", "failing");
    install("3", "base");
    install("4", "helper", "--start demand");
    install("5", "spare", "--start demand");
    install("6", "never", "--depends 2");
    const std::string failed = "start 2: the service is stopped instead of running: the service's own error 42";
    const std::string skipped = "start 6: it needs 2, which failed (1068)";
    expect({{"start-all", 1, "3: started\n1: started\n", failed + "\nkestsc: " + skipped},
            {"stop-all", 0, "1: stopped\n4: stopped\n3: stopped\n"}});
    EXPECT_EQ(state.read("starts"), "base helper front ");
    EXPECT_EQ(state.read("stops"), "front helper base ");
    install("7", "lonely", "--depends none,3");
    const std::string needed = "a service that this service depends on ";
    expect({{"start 7", 1, "", "start 7: " + needed + "is not installed (1075): none is not installed, 3 is stopped"},
            {"delete 7", 0, "7: deleted\n"}});
    state.write("services/2/configuration", "damage");
    expect({{"list", 0,
             "NAME  STATE    START   PROCESS  SINCE  LAST END       DISPLAY NAME\n"
             "1     stopped  auto    -        N s    ok             1\n"
             "2     unknown  -       -        -      -              damaged: the data is not valid (13)\n"
             "3     stopped  auto    -        N s    ok             3\n"
             "4     stopped  demand  -        N s    ok             4\n"
             "5     stopped  demand  -        -      never started  5\n"
             "6     stopped  auto    -        -      never started  6\n"},
            {"status 2", 3,
             "Service       2\nDisplay name  damaged: the data is not valid (13)\nState         stopped\n"
             "Started       TIME\nEnded         TIME\nLast end      the service's own error 42\n"},
            {"start-all", 1, "3: started\n1: started\n",
             "start-all 2: the data is not valid (13)\nkestsc: start 6: " + needed +
                 "failed to start (1068): 2 is stopped"},
            {"stop-all", 0, "2: is not running\n1: stopped\n4: stopped\n3: stopped\n"}});
}

TEST_F(Kestsc, WaitsUntilTheTimeOut) {
    install("slow", "slow");
    install("stubborn", "stubborn", "--depends slow");
    kit::ChildProcess watched(KESTSC, {"start", "slow", "--", "slowly"}, {"", "", true});
    EXPECT_EQ(watched.wait(), 0);
    EXPECT_EQ(watched.output(), "slow: started\n");
    const std::regex shown(
        "(\rstart slow: [a-z]+( pending)?(, process \\d+)?(, check point 1)?, \\d+ s *)*\rstart slow: start pending, "
        "process \\d+, check point 1, \\d+ s *(\rstart slow: [a-z]+, process \\d+, \\d+ s *)?\r {20,}\r");
    EXPECT_TRUE(std::regex_match(watched.errors(), shown)) << testing::PrintToString(watched.errors());
    expect({{"start stubborn", 0, "stubborn: started\n"},
            {"stop stubborn --timeout=1", 6, "",
             "stop stubborn: timed out after 1 s; the service is stop pending and reports no progress"},
            {"stop stubborn --timeout=1 --force", 0, "stubborn: killed\n"},
            {"stop slow", 0, "slow: stopped\n"}});
    install("mute", "mute");
    expect({"config mute --command '/bin/sleep 100'", 0, "mute: changed\n"});
    for (const Texts& arguments : {Texts{"start", "mute"}, {"start", "slow", "--", "for", "ever"}}) {
        kit::ChildProcess broken(KESTSC, arguments);
        kit::await([&] { return query(arguments[1]).processId != 0; });
        broken.interrupt();
        EXPECT_EQ(broken.wait(), -SIGINT);
        const std::regex ended("kestsc: start " + arguments[1] + ": interrupted; its process \\d+ was ended\n");
        EXPECT_TRUE(std::regex_match(broken.errors(), ended)) << broken.errors();
        EXPECT_EQ(query(arguments[1]).currentState, 1u);
    }
    environment.set("KEST_SERVICE_TIMEOUT", "1000");
    const std::string explained =
        " as a service, which only a program with KestService::start does; kestsc logs shows its output";
    expect({"start mute", 6, "",
            "start mute: the service did not answer in time (1053); the program did not answer" + explained});
    environment.set("KEST_SERVICE_TIMEOUT", std::nullopt);
    expect({{"config mute --command \"/bin/sh -c 'echo hello >&2'\"", 0, "mute: changed\n"},
            {"start mute", 1, "",
             "start mute: the process ended unexpectedly (1067); the program ended before it answered" + explained},
            {"logs mute", 0, "hello\n"},
            {"config slow --command \"/bin/sh -c 'printf open'\"", 0, "slow: changed\n"},
            {"start slow", 1, "",
             "start slow: the process ended unexpectedly (1067); the program ended before it answered" + explained},
            {"logs slow none mute slow -n 1", 4, "==> slow <==\nopen\n\n==> mute <==\nhello\n\n==> slow <==\nopen",
             "logs none: the service is not installed (1060)"},
            {"config mute --command '/none/x y'", 0, "mute: changed\n"},
            {"start mute", 1, "", "start mute: no such file or directory (2): /none/x"}});
    kit::ChildProcess full(KESTSC, {"list"}, {"", "exec >/dev/full", false});
    EXPECT_EQ(full.wait(), 1);
    EXPECT_EQ(full.errors(), "kestsc: standard output: no space left on device (112)\n");
}

TEST_F(Kestsc, FitsTheTerminal) {
    install("web", "plain", "--display 'A long display name'");
    environment.set("TERM", "xterm");
    for (const std::string refusal : {"", "1"}) {
        environment.set("NO_COLOR", refusal);
        kit::ChildProcess child(KESTSC, {"list"}, {"", "stty cols 69 <&2; exec >&2", true});
        EXPECT_EQ(child.wait(), 0);
        const std::string word = refusal.empty() ? "\x1b[31mstopped\x1b[0m" : "stopped";
        EXPECT_EQ(child.errors(), "NAME  STATE    START  PROCESS  SINCE  LAST END       DISPLAY NAME\r\nweb   " + word +
                                      "  auto   -        -      never started  A long displa...\r\n");
    }
    kit::ChildProcess narrow(KESTSC, {"list"}, {"", "stty cols 40 <&2; exec >&2", true});
    EXPECT_EQ(narrow.wait(), 0);
    EXPECT_EQ(narrow.errors(), "NAME  STATE    START  PROCESS  SINCE\r\nweb   stopped  auto   -        -\r\n");
}

TEST_F(Kestsc, KeepsTheOutputOfServices) {
    install("talker", "talker");
    expect({{"start talker", 0, "talker: started\n"}, {"logs talker", 0, ""}});
    kit::ChildProcess follower(KESTSC, {"logs", "talker", "-f"});
    const std::string folder = state.pathOf("services/talker/");
    std::string all;
    for (int part = 1; part <= 3; ++part) {
        EXPECT_EQ(run("control talker 200"), "0/4");
        if (part == 2) kit::await([&] { return std::filesystem::exists(folder + "output.old"); });
        for (int i = static_cast<int>(all.size() / 64); i < part * 10'000; ++i)
            all += std::string(63 - std::to_string(i).size(), '0') + std::to_string(i) + '\n';
        EXPECT_TRUE(follower.waitForOutput("0" + std::to_string(part * 10'000 - 1) + "\n"));
    }
    follower.interrupt();
    EXPECT_EQ(follower.wait(), -SIGINT);
    EXPECT_TRUE(follower.output() == all) << "nothing is lost or doubled";
    expect({{"logs talker", 0, all},
            {"logs talker -n 2", 0, all.substr(all.size() - 128)},
            {"stop talker", 0, "talker: stopped\n"}});
    EXPECT_EQ(std::filesystem::status(folder + "output").permissions(), std::filesystem::perms(0600));
    std::filesystem::remove(folder + "output");
    std::filesystem::create_symlink(state.write("kept", ""), folder + "output");
    expect({{"start talker", 1, "", "start talker: the data is not valid (13)"}});
    std::filesystem::remove(folder + "output");
    EXPECT_EQ(run("start talker; await talker 4; control talker 200"), "0 0/4");
    kit::ChildProcess last(KESTSC, {"logs", "talker", "-f", "-n", "1"});
    EXPECT_TRUE(last.waitForOutput("\n"));
    EXPECT_EQ(run("remove talker"), "0");
    kit::ChildProcess::kill(query("talker").processId);
    EXPECT_EQ(last.wait(), 0) << "the service is deleted";
}

TEST_F(Kestsc, RestartsServicesThatEnd) {
    install("always", "plain", "--restart always");
    install("failing", "failing", "--restart on-failure");
    install("never", "plain");
    expect({"config always --json", 0,
            "{\"name\":\"always\",\"displayName\":\"always\",\"description\":\"\",\"start\":\"auto\","
            "\"restart\":\"always\",\"depends\":[],\"command\":\"SERVE plain\"}\n"});
    kit::ChildProcess supervisor(KESTSC, {"run-all"});
    EXPECT_TRUE(supervisor.waitForOutput("failing: starts again in 1000 ms\n")) << "twice the first delay";
    EXPECT_EQ(run("await always 4; await never 4"), "");
    const std::uint32_t process = query("always").processId;
    kit::ChildProcess::kill(query("never").processId);
    EXPECT_TRUE(supervisor.waitForOutput("never: ended: the process ended unexpectedly (1067); signal 9\n"));
    kit::ChildProcess::kill(process);
    EXPECT_TRUE(supervisor.waitForOutput("always: starts again in 500 ms\n"));
    EXPECT_TRUE(supervisor.waitForOutput("always: is starting\n"));
    run("await always 4");
    EXPECT_NE(query("always").processId, process);
    expect({{"status never", 3,
             "Service       never\nDisplay name  never\nState         stopped\nStarted       TIME\n"
             "Ended         TIME\nLast end      the process ended unexpectedly (1067); signal 9\n"},
            {"stop always", 0, "always: stopped\n"}});
    EXPECT_TRUE(supervisor.waitForOutput("always: ended: no error\n"));
    expect({"start never", 0, "never: started\n"});
    supervisor.requestEnd();
    EXPECT_EQ(supervisor.wait(), 0) << supervisor.errors();
    const std::string& told = supervisor.output();
    EXPECT_EQ(told.find("always: starts", told.find("always: ended: no error")), std::string::npos) << told;
    EXPECT_NE(told.find("never: stopped\n"), std::string::npos) << told;
    EXPECT_EQ(query("never").currentState, 1u);
}

TEST(KestscCommand, RunsFromAnyFolder) {
    const std::string here = std::filesystem::current_path().string();
    const kit::TemporaryFolder folder;
    const std::string program = folder.write("a b", "");
    folder.write("a", "");
    const std::pair<Texts, std::string> commands[] = {
        {{"web"}, "web"},
        {{"/bin/a", "b c", "-d"}, "/bin/a 'b c' -d"},
        {{"/opt/my app \"b c\""}, "/opt/my app \"b c\""},
        {{program + " c d"}, joinArguments({program}) + " c d"},
        {{"./a b"}, joinArguments({here + "/a"}) + " b"},
        {{"a/../b", "c d"}, joinArguments({here + "/b", "c d"})},
    };
    for (const auto& [words, registered] : commands)
        EXPECT_EQ(kestsc::registeredCommand(words, kestsc::kCommands[0]), registered);
}

}  // namespace
