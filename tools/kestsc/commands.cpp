#include "commands.h"

#include "command_line.h"

namespace kestsc {

namespace {

constexpr unsigned kWaiting = kOptionTimeout | kOptionNoWait;
constexpr unsigned kSettings = kOptionDisplay | kOptionDescription | kOptionStart | kOptionDepends;

}  // namespace

const std::vector<CommandEntry> kCommands{
    {"list", "", "every service, with its state",
     "One line for each service, in the order of the names. A service whose files are damaged is\n"
     "listed with the reason.\n",
     "kestsc list --json", 0, 0, 0, listServices},
    {"status", "NAME", "what one service tells about itself",
     "The exit code is 3 for a service that is stopped, and 4 for one that is not installed.\n",
     "kestsc status web || kestsc start web", 1, 1, 0, showStatus},
    {"start", "NAME [ARGUMENT...]", "start a service and wait until it runs",
     "Starts what the service depends on, then the service, and gives it the arguments. Those that\n"
     "begin with a dash stand behind --. A service that runs already is left alone. The time-out begins\n"
     "when the program has answered, for which it has 30 seconds. Ctrl+C ends the program again.\n",
     "kestsc start web --timeout 60 -- --verbose", 1, kAnyNumber, kWaiting, startOne},
    {"stop", "NAME", "stop a service and wait until it is stopped",
     "Refused while services that depend on it run. A service that does not run is left alone. A program\n"
     "that was started and has not answered is ended.\n",
     "kestsc stop web --timeout 10 --force", 1, 1, kWaiting | kOptionForce, stopOne},
    {"restart", "NAME", "stop a service, then start it",
     "A service that does not run is started. The time-out holds for the stop and for the start.\n",
     "kestsc restart web", 1, 1, kOptionTimeout | kOptionForce, restartOne},
    {"install", "NAME COMMAND...", "make a program a service",
     "The command is one word, with quotes inside where its arguments need them, or several words.\n"
     "Words that begin with a dash stand behind --. Without options the service starts with start-all,\n"
     "is displayed by its name and depends on nothing.\n",
     "kestsc install web --display \"Web server\" --depends db -- /usr/sbin/webd --port 80", 2, kAnyNumber, kSettings,
     installOne},
    {"delete", "NAME", "unregister a service",
     "The program itself is not touched. A service that is not stopped goes when it has stopped.\n",
     "kestsc delete web", 1, 1, 0, deleteOne},
    {"config", "NAME", "show or change what a service is registered with",
     "Changes what the options name, from the next start on; without one of them, shows what there is.\n",
     "kestsc config web --start demand --depends db,cache", 1, 1, kSettings | kOptionCommand, configureOne},
    {"start-all", "", "start every service that starts automatically",
     "Each behind those that it depends on. Goes on past one that fails; the exit code is that of the\n"
     "first failure. For a container's entry point or a boot unit.\n",
     "kestsc start-all --timeout 120", 0, 0, kWaiting, startAll},
    {"stop-all", "", "stop every service that is not stopped",
     "Each before those that it depends on. Goes on past one that fails; the exit code is that of the\n"
     "first failure.\n",
     "kestsc stop-all --force", 0, 0, kOptionTimeout | kOptionForce, stopAll},
};

}  // namespace kestsc
