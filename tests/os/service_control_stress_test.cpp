// Tests the time-out of KestServiceControl, which takes 30 seconds.
#include <gtest/gtest.h>

#include <chrono>

#include "kit/recording_service_manager.h"
#include "support/service_control.h"

namespace {

using namespace KestSupport;

TEST(ServiceControlStress, TimesOutAfterThirtyPolls) {
    kit::RecordingServiceManager manager;
    manager.queriedStates.assign(32, 2);
    const auto begin = std::chrono::steady_clock::now();
    std::string text;
    try {
        KestServiceControlWin("stuck").StartServiceA();
    } catch (const KestServiceControlException& failed) {
        EXPECT_EQ(failed.MapErrorToSmStatusCode(), 3);
        failed.GetErrorMessage(text);
    }
    EXPECT_EQ(text, "A command to start or stop the service timed out.");
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(30));
    EXPECT_EQ(manager.queriedStates.size(), 1u) << "one query and 30 polls";
}

}  // namespace
