// Services that this program is in a role, for tests of the service manager.
#pragma once

#include <filesystem>
#include <fstream>
#include <thread>

#include "kit/service_fixture.h"
#include "platform/process.h"

namespace {

using namespace KestSupport::platform;
using Texts = std::vector<std::string>;

std::atomic<ServiceManager::Handle> g_status;

void report(std::uint32_t state, std::uint32_t accepted = 3, std::uint32_t exitCode = 0) {
    serviceManager().setStatus(g_status, {16, state, accepted, exitCode});
}

void onControl(std::uint32_t code) {
    std::ofstream("controls", std::ios::app) << code << " ";
    if (code == 200 || (code == kServiceControlStop && std::filesystem::remove("throw once"))) throw 1;
    if (code == kServiceControlStop) {
        report(kServiceStopped, 0, 7);
        // The process must not end before the answer is sent.
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    if (code == kServiceControlPause) report(kServicePaused);
    if (code == kServiceControlContinue) report(kServiceRunning);
}

// A service that writes its arguments to a file in its working directory.
template <std::uint32_t state = kServiceRunning, std::uint32_t accepted = 3, std::uint32_t exitCode = 0>
void serve(const Texts& arguments) {
    std::ofstream("heard") << joinArguments(arguments);
    g_status = serviceManager().registerControlHandler("any", onControl);
    report(state, accepted, exitCode);
}
template <ServiceManager::ServiceMain main>
int dispatch(const Texts&) {
    return static_cast<int>(serviceManager().runDispatcher("any", main));
}
const kit::ChildRole roles[] = {{"plain", dispatch<serve<>>},
                                {"failing", dispatch<serve<kServiceStopped, 0, 42>>},
                                {"silent", dispatch<[](const Texts&) {}>},
                                {"throwing", dispatch<[](const Texts&) { throw 1; }>}};

}  // namespace
