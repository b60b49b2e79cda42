// Tests the time-out of KestServiceControl, which takes 30 seconds.

#include <chrono>

#include "kit/recording_service_manager.h"
#include "support/service_control.h"

namespace {

using namespace KestSupport;

TEST(ServiceControlStress, TimesOutAfterThirtyPolls) {
    kit::RecordingServiceManager manager;
    constexpr std::uint32_t kStartPending = 2;
    manager.queriedStates.assign(1 + 30 + 1, kStartPending);  // the state after the start, the polls, an unread one
    const auto begin = std::chrono::steady_clock::now();
    try {
        KestServiceControlWin("stuck").StartServiceA();
        ADD_FAILURE() << "no failure";
    } catch (const KestServiceControlException& failure) {
        EXPECT_EQ(failure.GetErrorNumber(), KestServiceControlException::TIMED_OUT);
    }
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(30));
    EXPECT_EQ(manager.queriedStates.size(), 1u);
}

}  // namespace
