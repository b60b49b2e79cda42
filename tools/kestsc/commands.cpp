#include "commands.h"

#include "command_line.h"

namespace kestsc {

namespace {

constexpr unsigned kWaiting = kOptionTimeout | kOptionNoWait;
constexpr unsigned kSettings = kOptionDisplay | kOptionDescription | kOptionStart | kOptionRestart | kOptionDepends;

}  // namespace

const std::vector<CommandEntry> kCommands{
    {"list", "", "list the services with their states",
     "Prints one line for each service, sorted by name. For a service with damaged\n"
     "files it prints the reason.\n",
     "kestsc list --json", 0, 0, 0, listServices},
    {"status", "[NAME...]", "show the status of services",
     "The exit code is 3 when a service is stopped, and 4 when one is not installed.\n"
     "Without a name it is list.\n",
     "kestsc status web || kestsc start web", 0, kAnyNumber, 0, showStatus},
    {"start", "NAME... [-- ARGUMENT...]", "start services and wait until they run",
     "Starts the services that one depends on before it, and passes the arguments to\n"
     "each named service. A service that already runs is not changed. A program has\n"
     "30 seconds to answer; after that the time-out begins. Ctrl+C ends the started\n"
     "program.\n",
     "kestsc start web --timeout 60 -- --verbose", 1, kAnyNumber, kWaiting, startEach},
    {"stop", "NAME...", "stop services and wait until they are stopped",
     "Fails while services that depend on one run. A service that does not run is\n"
     "not changed. A program that was started and has not answered is ended.\n",
     "kestsc stop web --timeout 10 --force", 1, kAnyNumber, kWaiting | kOptionForce, stopEach},
    {"restart", "NAME...", "stop services and start them again",
     "Starts a service that does not run. The time-out applies to the stop and to\n"
     "the start.\n",
     "kestsc restart web", 1, kAnyNumber, kOptionTimeout | kOptionForce, restartEach},
    {"control", "NAME... CODE", "send a control to services",
     "CODE is a number from 128 to 255, whose meaning the service defines, or one of\n"
     "the words reload (read the settings again), pause, continue, interrogate.\n",
     "kestsc control web reload", 2, kAnyNumber, 0, controlEach},
    {"wait", "NAME... STATE", "wait until services have a state",
     "STATE is running, stopped or paused. The time-out applies to each service.\n"
     "Changes nothing.\n",
     "kestsc wait web running --timeout 60", 2, kAnyNumber, kOptionTimeout, waitForEach},
    {"logs", "NAME...", "show what services have written",
     "Of older output at least 1 MiB is kept. Without --lines all of it is shown.\n"
     "With --follow it ends with Ctrl+C, or when the services are deleted.\n",
     "kestsc logs web --lines 20 --follow", 1, kAnyNumber, kOptionLines | kOptionFollow, showLogs},
    {"install", "NAME COMMAND...", "register a program as a service",
     "COMMAND is one word, with its own quotes inside, or several words. Put words\n"
     "that begin with a dash after --. Without options the start type is auto, the\n"
     "display name is NAME, and the service depends on no other.\n",
     "kestsc install web --depends db -- /usr/sbin/webd --port 80", 2, kAnyNumber, kSettings, installOne},
    {"delete", "NAME...", "unregister services",
     "The program files stay. A service that is not stopped is deleted when it\n"
     "stops.\n",
     "kestsc delete web", 1, kAnyNumber, 0, deleteEach},
    {"config", "NAME", "show or change the configuration of a service",
     "The options change the configuration from the next start on. Without options\n"
     "it is shown.\n",
     "kestsc config web --start demand --depends db,cache", 1, 1, kSettings | kOptionCommand, configureOne},
    {"start-all", "", "start every service that starts automatically",
     "Starts each service after those that it depends on. Continues after a failure;\n"
     "the exit code is that of the first failure. For a container's entry point or a\n"
     "boot unit.\n",
     "kestsc start-all --timeout 120", 0, 0, kWaiting, startAll},
    {"stop-all", "", "stop every service that is not stopped",
     "Stops each service before those that it depends on. Continues after a failure;\n"
     "the exit code is that of the first failure.\n",
     "kestsc stop-all --force", 0, 0, kOptionTimeout | kOptionForce, stopAll},
    {"run-all", "", "start, watch over and stop the services",
     "For a container's entry point or a boot unit. Starts as start-all does and\n"
     "stays until Ctrl+C or SIGTERM; then it stops as stop-all does. A service that\n"
     "ends is started again if its --restart wants that: after half a second, then\n"
     "after twice the last delay, up to a minute. A run of a minute resets the\n"
     "delay. A service that was stopped by a request stays stopped.\n",
     "kestsc run-all --timeout 10 --force", 0, 0, kOptionTimeout | kOptionForce, runAll},
};

}  // namespace kestsc
