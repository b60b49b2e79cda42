// Tests the commands of kestsc on services of this program, with every service manager.
#include "tools/kestsc_fixture.h"

namespace {

TEST_F(Kestsc, AdministersServices) {
    const std::string heading = "Service       web\nDisplay name  a web\\x1B[2J\n";
    install("web", "plain",
            "\"--display=a web\x1b[2J\" --description=" + std::string(kit::kUmlaut) + " --start demand");
    install("a", "plain");
    expect({
        {"install @web x", 1, "", "install web: the service is already installed (1073)"},
        {"status @web", 3,
         heading + "State         stopped\n"
                   "Last end      the service has never been started (1077)\n"},
        {"stop @web", 0, "web: is not running\n"},
        {"start @web fast -- --one \"two words\"", 4, "web: started\n",
         "start fast: the service is not installed (1060); arguments for services follow --"},
        {"start @web", 0, "web: is already running\n"},
        {"start @web @Wen", 4, "web: is already running\n",
         "start Wen: the service is not installed (1060); did you mean web?"},
        {"status @web", 0,
         heading + "State         running\nStarted       TIME\nProcess       PID\nAccepts       stop\n"},
        {"status @web --json", 0,
         "{\"name\":\"web\",\"displayName\":\"a web\\u001B[2J\",\"error\":0,\"state\":\"running\","
         "\"processId\":PID,"
         "\"accepts\":[\"stop\"],\"exitCode\":0,\"serviceExitCode\":42,\"checkPoint\":0,\"waitHint\":0,"
         "\"started\":\"TIME\",\"ended\":null,\"processExitCode\":null}\n"},
        {"control none @web 200", 4, "web: accepted 200; running\n",
         "control none: the service is not installed (1060)"},
        {"control @web reload", 1, "", "control web: the service does not take this control (1052)"},
        {"wait @web @web running", 0, "web: is running\nweb: is running\n"},
        {"wait @web paused --timeout 1", 6, "", "wait web: timed out after 1 s; the service is running"},
        {"config @web", 0,
         heading + "Description   \u00fc\nStart         demand\nRestart       never\nDepends on\nCommand       SERVE "
                   "plain\n"},
        {"config @web --start=auto --description \"\" --json", 0,
         "{\"results\":[{\"operation\":\"config\",\"service\":\"web\",\"status\":0,\"error\":0,"
         "\"message\":\"changed\"}]}\n"},
        {"restart @web", 0, "web: started\n"},
        {"config @web", 0,
         heading + "Description\nStart         auto\nRestart       never\nDepends on\nCommand       SERVE plain\n"},
        {"stop @web none", 4, "web: stopped\n", "stop none: the service is not installed (1060)"},
        {"status @web @a", 3,
         heading + "State         stopped\nStarted       TIME\nEnded         TIME\nLast end      no error\n\n"
                   "Service       a\nDisplay name  a\nState         stopped\n"
                   "Last end      the service has never been started (1077)\n"},
        {"delete @a", 0, "a: deleted\n"},
        {"status @a", 4, "", "status a: the service is not installed (1060)"},
        {"start \"a\nb\" --json", 1,
         "{\"results\":[{\"operation\":\"start\",\"service\":\"a\\u000Ab\",\"status\":-1,\"error\":123,"
         "\"message\":\"the name is not valid (123)\"}]}\n",
         "start a\\x0Ab: the name is not valid (123)"},
    });
    EXPECT_EQ(state.read("starts"), "--one,two words,plain plain ");
}

TEST_F(Kestsc, WaitsForServices) {
    install("slow", "slow");
    expect({{"start @slow --no-wait", 0, "slow: is starting\n"},
            {"start @slow", 0, "slow: is already running\n"},
            {"restart @slow --timeout 60", 0, "slow: started\n"},
            {"stop @slow --no-wait", 0, "slow: is stopping\n"},
            {"wait @slow stopped", 0, "slow: is stopped\n"}});
    if (!kit::servicesAreOfTheTest())
        expect({"stop-all", 8, "", "stop-all: this function is not implemented (120)"});  // those of the system too
}

}  // namespace
