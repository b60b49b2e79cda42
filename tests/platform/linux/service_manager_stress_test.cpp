// Kills services at random moments, and lets clients contend for one. KEST_STRESS_ROUNDS sets another number of rounds.

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
    serviceManager().setStatus(g_status, {kServiceOwnProcess, state, kServiceAcceptStop});
}

// The service has a folder while it runs. A second process finds the folder of the first.
void run(const Texts&) {
    g_status = serviceManager().registerControlHandler("", [](std::uint32_t) {
        std::filesystem::remove("trace");
        report(kServiceStopped);
    });
    if (!std::filesystem::create_directory("trace")) std::ofstream("twice").put('!');
    report(kServiceRunning);
}
const kit::ChildRole service("service",
                             [](const Texts&) { return static_cast<int>(serviceManager().runDispatcher("", run)); });

int rounds() {
    const char* const wanted = std::getenv("KEST_STRESS_ROUNDS");
    return wanted == nullptr ? 1000 : std::atoi(wanted);
}

TEST_F(ServiceManagerStress, RestartsAfterAKillAtAnyMoment) {
    ASSERT_EQ(run("create victim service"), "0");
    std::minstd_rand random(1);
    for (int i = 0; i < rounds(); ++i) {
        std::atomic<bool> started{false};
        std::thread killer([&] {
            std::uint32_t process = 0;
            kit::await([&] { return started || (process = query("victim").processId) != 0; });
            std::this_thread::sleep_for(std::chrono::microseconds(random() % 2000));
            if (process != 0) kit::ChildProcess::kill(process);
        });
        const std::string error = run("start victim");
        started = true;
        killer.join();
        ASSERT_TRUE(std::set<std::string>({"0", "1067"}).contains(error)) << error;
        ASSERT_EQ(run("end victim; tell victim"), "1/0/1067");
    }
    EXPECT_EQ(run("start victim; remove victim"), "0 0");
}

TEST_F(ServiceManagerStress, ContendingClientsGetOneProcess) {
    const std::pair<std::string, std::set<std::string>> steps[] = {
        {"create prize service", {"0", "1072", "1073"}},
        {"start prize", {"0", "1056", "1060", "1067", "1072"}},
        {"control prize 1", {"0/1", "1060/0", "1061/2", "1061/3", "1062/1"}},
        {"type prize 2", {"0", "1060", "1072"}},
        {"remove prize", {"0", "1060", "1072"}},
    };
    std::atomic<int> left{rounds() * 4};
    const auto client = [&](unsigned seed) {
        std::minstd_rand random(seed);
        while (left-- > 0) {
            const auto& [step, allowed] = steps[random() % std::size(steps)];
            const std::string result = run(step);
            EXPECT_TRUE(allowed.contains(result)) << step << ": " << result;
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
