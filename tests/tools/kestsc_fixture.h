// Runs kestsc on services of this program, for tests.
#pragma once

#include <regex>

#include "kit/service_fixture.h"
#include "platform/process.h"
#include "platform/thread.h"

namespace {

using namespace KestSupport::platform;
using Texts = std::vector<std::string>;

ServiceManager::Handle g_status;
std::string g_behaviour;

void report(std::uint32_t state, std::uint32_t exitCode = 0, std::uint32_t checkPoint = 0, std::uint32_t hint = 0) {
    ServiceStatus status;
    status.currentState = state;
    status.controlsAccepted = kServiceAcceptStop;
    status.exitCode = exitCode;
    status.serviceExitCode = 42;
    status.checkPoint = checkPoint;
    status.waitHint = hint;
    serviceManager().setStatus(g_status, status);
}

// Writes 10,000 numbered lines of 64 bytes.
void talk() {
    static int number = 0;
    for (const int end = number + 10'000; number < end; ++number)
        std::printf("%063d\n", number);
    std::fflush(stdout);
}

// The control handler and the main function of the test's services.
void onControl(std::uint32_t code) {
    if (code == 200) talk();
    if (code != kServiceControlStop) return;
    if (g_behaviour == "stubborn") return report(kServiceStopPending, 0, 7, 1);
    report(kServiceStopPending);
    std::ofstream("stops", std::ios::app) << g_behaviour << " ";
    report(kServiceStopped);
}
void serve(const Texts& arguments) {
    g_status = serviceManager().registerControlHandler("any", onControl);
    if (g_behaviour == "failing") return report(kServiceStopped, 1066);
    if (g_behaviour == "slow") {
        report(kServiceStartPending, 0, 1, 100);
        sleepThread(arguments.size() > 2 ? kInfinite : arguments.size() > 1 ? 2000 : 100);
    }
    std::ofstream starts("starts", std::ios::app);
    for (std::size_t i = 1; i < arguments.size(); ++i)
        starts << arguments[i] << ",";
    starts << g_behaviour << " ";
    starts.close();
    report(kServiceRunning);
}
const kit::ChildRole role("serve", [](const Texts& arguments) {
    g_behaviour = arguments.at(0);
    return static_cast<int>(serviceManager().runDispatcher("any", serve));
});

struct Step {
    std::string arguments;  // a command line; @ before a service's name that the test has given
    int code;
    std::string output;
    std::string errors{};
};

class Kestsc : public kit::ServiceFixture {
  protected:
    // In the output, PID replaces the service's process id, TIME a time, N a number of seconds, and SERVE this
    // program's command line. The system's manager knows no times, and has texts of its own for errors.
    void expect(Step step) {
        step.arguments = std::regex_replace(step.arguments, std::regex("@"), named(""));
        kit::ChildProcess child(KESTSC, splitArguments(step.arguments));
        EXPECT_EQ(child.wait(), step.code) << step.arguments;
        std::string output =
            std::regex_replace(child.output(), std::regex("(\"processId\":|Process +)\\d\\d+"), "$1PID");
        output = std::regex_replace(output, std::regex("\\d{4}-\\d\\d-\\d\\d.\\d\\d:\\d\\d:\\d\\d(Z| .\\d+ s ago.)"),
                                    "TIME");
        output = std::regex_replace(output, std::regex("\\d+ s {2,}"), "N s    ");
        if (const auto at = output.find(serveCommand); at != std::string::npos)
            output.replace(at, serveCommand.size(), "SERVE");
        std::string errors = child.errors();
        if (!step.errors.empty()) step.errors = "kestsc: " + step.errors + "\n";
        if (!kit::servicesAreOfTheTest()) {
            step.output = std::regex_replace(step.output, std::regex("(Started|Ended) +TIME\n"), "");
            step.output = std::regex_replace(step.output, std::regex("\"TIME\""), "null");
            for (std::string* text : {&output, &errors, &step.output, &step.errors}) {
                *text = std::regex_replace(*text, std::regex(named("")), "");
                *text = std::regex_replace(*text, std::regex("([:\"]|end) *[a-z' ]+[.]? \\((\\d+)\\)"), "$1 ($2)");
            }
        }
        EXPECT_EQ(output, step.output) << step.arguments;
        EXPECT_EQ(errors, step.errors);
    }
    void expect(const std::vector<Step>& steps) {
        for (const Step& step : steps)
            expect(step);
    }
    void install(const std::string& name, const std::string& behaviour, const std::string& options = "") {
        const std::string command = joinArguments({serveCommand + " " + behaviour});
        expect({"install @" + name + " " + command + " " + options, 0, name + ": installed\n"});
    }
    const std::string serveCommand = commandOf("serve");
};

}  // namespace
