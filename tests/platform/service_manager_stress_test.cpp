// KEST_STRESS_ROUNDS raises the number of rounds.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <set>

#include "kit/service_fixture.h"

namespace {

using namespace KestSupport::platform;
using Texts = std::vector<std::string>;
using ServiceManagerStress = kit::ServiceFixture;

std::atomic<ServiceManager::Handle> g_status;

void report(std::uint32_t state) {
    ServiceStatus status;
    status.currentState = state;
    status.controlsAccepted = kServiceAcceptStop;
    serviceManager().setStatus(g_status, status);
}

// While it runs it leaves a trace; whoever meets another's trace is one too many.
void run(const Texts&) {
    g_status = serviceManager().registerControlHandler("", [](std::uint32_t) {
        std::filesystem::remove("trace");
        report(kServiceStopped);
    });
    std::FILE* const trace = std::fopen("trace", "wx");
    if (trace == nullptr) std::ofstream("twice").put('!');
    if (trace != nullptr) std::fclose(trace);
    report(kServiceRunning);
}
const kit::ChildRole service("service",
                             [](const Texts&) { return static_cast<int>(serviceManager().runDispatcher("", run)); });

int rounds() {
    const char* const wanted = std::getenv("KEST_STRESS_ROUNDS");
    return wanted == nullptr ? 100 : std::atoi(wanted);
}

TEST_F(ServiceManagerStress, AServiceThatIsKilledAtAnyMomentIsSeenAsStoppedAndStartsAgain) {
    environment.set("KEST_SERVICE_TIMEOUT", "20000");
    ASSERT_EQ(create("victim", "service"), 0u);
    std::minstd_rand random(1);
    for (int i = 0; i < rounds(); ++i) {
        std::atomic<bool> started{false};
        std::thread killer([&] {
            Status status;
            kit::await([&] { return started || (query("victim", status) == 0 && status.processId != 0); });
            std::this_thread::sleep_for(std::chrono::microseconds(random() % 2000));
            if (status.processId != 0) kit::ChildProcess::kill(status.processId);
        });
        const ErrorCode error = start("victim");
        started = true;
        killer.join();
        ASSERT_TRUE(error == 0 || error == 1067) << error;
        Status status;
        ASSERT_EQ(query("victim", status), 0u);
        if (status.processId != 0) kit::ChildProcess::kill(status.processId);
        const Status last = awaitState("victim", 1);
        ASSERT_EQ(last.exitCode, 1067u);
    }
    EXPECT_EQ(start("victim"), 0u);
    EXPECT_EQ(remove("victim"), 0u);
}

TEST_F(ServiceManagerStress, ClientsThatContendNeverMakeTwoProcessesOrATornFile) {
    environment.set("KEST_SERVICE_TIMEOUT", "20000");
    const std::set<ErrorCode> allowed[] = {
        {0, 1072, 1073},              // create
        {0, 1056, 1060, 1067, 1072},  // start
        {0, 1060, 1061, 1062},        // stop
        {0, 1060, 1072},              // change
        {0, 1060, 1072},              // delete
    };
    std::atomic<int> left{rounds() * 4};
    const auto client = [&](unsigned seed) {
        std::minstd_rand random(seed);
        while (left-- > 0) {
            const std::size_t which = random() % std::size(allowed);
            const ErrorCode error = which == 0   ? create("prize", "service")
                                    : which == 1 ? start("prize")
                                    : which == 2 ? control("prize", kServiceControlStop)
                                    : which == 3 ? change("prize", {.startType = 2 + random() % 2})
                                                 : remove("prize");
            EXPECT_TRUE(allowed[which].count(error) == 1) << which << ": " << error;
            for (const auto& each : list())
                EXPECT_EQ(each.error, 0u);
        }
    };
    std::thread other(client, 2);
    client(1);
    other.join();
    EXPECT_FALSE(std::filesystem::exists(state.pathOf("twice")));
}

}  // namespace
