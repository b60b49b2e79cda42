// What every back end of platform/wait.h must do.
#include "platform/wait.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "kit/failing_calls.h"
#include "kit/gate.h"
#include "platform/thread.h"

using namespace KestSupport::platform;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

OwnedHandle event(bool manual = false, bool signalled = false) {
    return OwnedHandle(createEvent(manual, signalled));
}
OwnedHandle mutex() {
    return OwnedHandle(createMutex());
}

template <typename Wait>
std::future<std::uint32_t> elsewhere(Wait wait) {
    return std::async(std::launch::async, wait);
}
bool stillWaits(const std::future<std::uint32_t>& wait) {
    return wait.wait_for(30ms) == std::future_status::timeout;
}

// Another thread's wait for a mutex, which it gives back.
std::uint32_t waitElsewhere(WaitHandle handle, std::uint32_t timeout) {
    return elsewhere([=] {
               const std::uint32_t result = waitForOne(handle, timeout);
               if (result != kWaitTimeout) releaseMutex(handle);
               return result;
           })
        .get();
}

TEST(Wait, AnEventAnswersBySignalAndKindOfReset) {
    for (const bool manual : {false, true}) {
        const auto subject = event(manual);
        EXPECT_EQ(waitForOne(subject.get(), 0), kWaitTimeout);
        EXPECT_TRUE(setEvent(subject.get()));
        EXPECT_TRUE(setEvent(subject.get()));
        EXPECT_EQ(waitForOne(subject.get(), 0), kWaitObject0);
        EXPECT_EQ(waitForOne(subject.get(), 0), manual ? kWaitObject0 : kWaitTimeout);
        setEvent(subject.get());
        EXPECT_TRUE(resetEvent(subject.get()));
        EXPECT_EQ(waitForOne(subject.get(), 0), kWaitTimeout);
        EXPECT_EQ(waitForOne(event(manual, true).get(), kInfinite), kWaitObject0);
    }
}

TEST(Wait, ATimeOutPassesInFull) {
    const auto subject = event();
    const auto begin = Clock::now();
    EXPECT_EQ(waitForOne(subject.get(), 40), kWaitTimeout);
    const std::array<WaitHandle, 1> handles{subject.get()};
    EXPECT_EQ(waitForMany(handles, true, 20), kWaitTimeout);
    EXPECT_GE(Clock::now() - begin, 60ms);
}

TEST(Wait, OneSetReleasesOneWaiterOfAnAutoResetEventAndAllOfAManualOne) {
    for (const bool manual : {false, true}) {
        const auto subject = event(manual);
        std::atomic<int> released{0};
        const auto wait = [&] {
            const std::uint32_t result = waitForOne(subject.get(), kInfinite);
            ++released;
            return result;
        };
        auto first = elsewhere(wait), second = elsewhere(wait);
        EXPECT_TRUE(stillWaits(first));
        setEvent(subject.get());
        kit::await([&] { return released == (manual ? 2 : 1); });
        EXPECT_TRUE(manual || stillWaits(first) || stillWaits(second));
        EXPECT_EQ(released, manual ? 2 : 1);
        setEvent(subject.get());
        EXPECT_EQ(first.get() + second.get(), 0U);
    }
}

TEST(Wait, APulseReleasesThoseWhoWaitAndLeavesNoSignal) {
    for (const bool manual : {false, true}) {
        const auto subject = event(manual), other = event();
        pulseEvent(subject.get());
        EXPECT_EQ(waitForOne(subject.get(), 0), kWaitTimeout);
        const std::array<WaitHandle, 2> both{other.get(), subject.get()};
        auto one = elsewhere([&] { return waitForOne(subject.get(), kInfinite); });
        auto any = elsewhere([&] { return waitForMany(both, false, kInfinite); });
        EXPECT_TRUE(stillWaits(one) && stillWaits(any));
        pulseEvent(subject.get());
        if (!manual) {
            const auto isDone = [](const auto& wait) { return wait.wait_for(0ms) == std::future_status::ready; };
            kit::await([&] { return isDone(one) || isDone(any); });
            EXPECT_TRUE(stillWaits(one) || stillWaits(any)) << "one pulse, one waiter";
            pulseEvent(subject.get());
        }
        EXPECT_EQ(one.get(), 0U);
        EXPECT_EQ(any.get(), 1U);
        EXPECT_EQ(waitForOne(subject.get(), 0), kWaitTimeout);
    }
}

TEST(Wait, AnyTakesTheLowestIndexAndConsumesThatOnly) {
    const auto a = event(), b = event(), c = event();
    const std::array<WaitHandle, 3> handles{a.get(), b.get(), c.get()};
    setEvent(c.get());
    setEvent(a.get());
    for (const std::uint32_t expected : {0U, 2U, kWaitTimeout})
        EXPECT_EQ(waitForMany(handles, false, 0), expected);
}

TEST(Wait, AllConsumesTogetherOrNotAtAll) {
    const auto a = event(), b = event(true), m = mutex();
    const std::array<WaitHandle, 3> handles{a.get(), m.get(), b.get()};
    setEvent(a.get());
    EXPECT_EQ(waitForMany(handles, true, 10), kWaitTimeout);
    EXPECT_EQ(waitElsewhere(m.get(), 0), kWaitObject0) << "a wait that failed left the mutex taken";
    EXPECT_EQ(waitForOne(a.get(), 0), kWaitObject0) << "a wait that failed took the event";
    waitForOne(m.get(), 0);
    auto all = elsewhere([&] {
        const auto result = waitForMany(handles, true, kInfinite);
        releaseMutex(m.get());
        return result;
    });
    setEvent(a.get());
    setEvent(b.get());
    EXPECT_TRUE(stillWaits(all)) << "the mutex is not to be had yet";
    releaseMutex(m.get());
    EXPECT_EQ(all.get(), kWaitObject0);
    EXPECT_EQ(waitForOne(a.get(), 0), kWaitTimeout);
    EXPECT_EQ(waitForOne(b.get(), 0), kWaitObject0);
}

TEST(Wait, UpTo64ObjectsAndNoneThatIsMissing) {
    std::vector<OwnedHandle> owners;
    std::vector<WaitHandle> handles;
    for (int i = 0; i < 65; ++i)
        handles.push_back(owners.emplace_back(createEvent(true, i == 63 || i == 64)).get());
    EXPECT_EQ(waitForMany({handles.data(), 64}, false, 0), 63U);
    EXPECT_EQ(waitForMany(handles, false, 0), kWaitFailed);
    EXPECT_EQ(waitForMany({}, true, 0), kWaitFailed);
    handles[3] = nullptr;
    EXPECT_EQ(waitForMany({handles.data(), 64}, false, 0), kWaitFailed);
    EXPECT_EQ(waitForOne(nullptr, 0), kWaitFailed);
    const std::array<WaitHandle, 2> twice{handles[63], handles[63]};
    EXPECT_EQ(waitForMany(twice, true, 0), kWaitFailed) << "the same object twice cannot be taken together";
    closeHandle(nullptr);
}

TEST(Wait, AMutexIsRecursiveAndBelongsToOneThread) {
    const auto subject = mutex();
    EXPECT_FALSE(releaseMutex(subject.get()));
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(waitForOne(subject.get(), 0), kWaitObject0);
    EXPECT_EQ(waitElsewhere(subject.get(), 0), kWaitTimeout);
    EXPECT_EQ(waitElsewhere(subject.get(), 20), kWaitTimeout);
    std::thread([&] { EXPECT_FALSE(releaseMutex(subject.get())); }).join();
    EXPECT_TRUE(releaseMutex(subject.get()) && releaseMutex(subject.get()));
    EXPECT_EQ(waitElsewhere(subject.get(), 0), kWaitTimeout);
    EXPECT_TRUE(releaseMutex(subject.get()));
    EXPECT_FALSE(releaseMutex(subject.get()));
    EXPECT_EQ(waitElsewhere(subject.get(), 0), kWaitObject0);
}

TEST(Wait, AnEndedOwnerLeavesAMutexAbandonedForTheNextOne) {
    const auto subject = mutex(), other = event(true, true);
    const std::array<WaitHandle, 2> both{subject.get(), other.get()};
    const std::function<std::uint32_t()> waits[] = {[&] { return waitForOne(subject.get(), kInfinite); },
                                                    [&] { return waitForMany(both, false, kInfinite); },
                                                    [&] { return waitForMany(both, true, kInfinite); }};
    for (const auto& wait : waits) {
        for (const bool late : {false, true}) {
            kit::Gate end;
            std::thread owner([&] {
                for (int level = 0; level < 2; ++level)
                    waitForOne(subject.get(), 0);
                end.pass();
            });
            kit::await([&] { return waitElsewhere(subject.get(), 0) == kWaitTimeout; });
            resetEvent(other.get());
            auto waiter = late ? elsewhere([&] { return waitElsewhere(subject.get(), kInfinite); })
                               : elsewhere([] { return kWaitAbandoned; });
            EXPECT_TRUE(!late || stillWaits(waiter));
            end.open();
            owner.join();
            EXPECT_EQ(waiter.get(), kWaitAbandoned) << "a waiter hears of the end";
            setEvent(other.get());
            EXPECT_EQ(wait(), late ? kWaitObject0 : kWaitAbandoned) << "it is said once";
            EXPECT_TRUE(releaseMutex(subject.get()));
            EXPECT_FALSE(releaseMutex(subject.get())) << "the ended owner's levels are gone";
        }
    }
}

TEST(Wait, ATimerIsSignalledWhenItIsDue) {
    constexpr std::int64_t kMillisecond = 10'000, kHour = 36'000'000'000;
    for (const bool manual : {false, true}) {
        const OwnedHandle subject(createWaitableTimer(manual));
        const auto wake = event();
        const std::array<WaitHandle, 2> both{wake.get(), subject.get()};
        EXPECT_EQ(waitForOne(subject.get(), 0), kWaitTimeout);
        EXPECT_TRUE(setWaitableTimer(subject.get(), kHour, 0));
        auto waiter = elsewhere([&] { return waitForMany(both, false, kInfinite); });
        EXPECT_TRUE(stillWaits(waiter));
        const auto begin = Clock::now();
        setWaitableTimer(subject.get(), 30 * kMillisecond, 0);
        EXPECT_EQ(waiter.get(), 1U) << "setting it anew reaches who waits";
        EXPECT_GE(Clock::now() - begin, 30ms);
        EXPECT_EQ(waitForOne(subject.get(), 0), manual ? kWaitObject0 : kWaitTimeout);
        setWaitableTimer(subject.get(), 0, 0);
        EXPECT_TRUE(cancelWaitableTimer(subject.get()));
        EXPECT_EQ(waitForOne(subject.get(), 0), kWaitObject0) << "it was signalled before it was cancelled";
        setWaitableTimer(subject.get(), kHour, 0);
        EXPECT_TRUE(cancelWaitableTimer(subject.get()));
        EXPECT_EQ(waitForOne(subject.get(), 5), kWaitTimeout);
        const auto periodic = Clock::now();
        setWaitableTimer(subject.get(), 10 * kMillisecond, 10);
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(waitForOne(subject.get(), kInfinite), kWaitObject0);
        EXPECT_GE(Clock::now() - periodic, manual ? 10ms : 25ms);
        EXPECT_FALSE(setWaitableTimer(subject.get(), 1, -1));
    }
}

TEST(Wait, SignalAndWaitLeavesNoGapForAPulse) {
    const auto request = event(), answer = event();
    const auto keeper = mutex();
    std::thread server([&] {
        for (int i = 0; i < 300; ++i) {
            waitForOne(request.get(), kInfinite);
            pulseEvent(answer.get());
        }
    });
    for (int i = 0; i < 300; ++i)
        ASSERT_EQ(signalAndWait(request.get(), answer.get(), 10'000), kWaitObject0);
    server.join();
    waitForOne(keeper.get(), 0);
    setEvent(answer.get());
    EXPECT_EQ(signalAndWait(keeper.get(), answer.get(), 0), kWaitObject0);
    EXPECT_EQ(waitElsewhere(keeper.get(), 0), kWaitObject0);
    EXPECT_EQ(signalAndWait(keeper.get(), answer.get(), 0), kWaitFailed) << "not this thread's to release";
    EXPECT_EQ(signalAndWait(nullptr, answer.get(), 0), kWaitFailed);
}

TEST(Wait, ShortMemoryGivesANullHandleAndCallsOnItFail) {
    for (const std::string call : {"createEvent", "createMutex", "createWaitableTimer"}) {
        const kit::FailingCalls failing(call.c_str());
        EXPECT_EQ(event() == nullptr, call == "createEvent");
        EXPECT_EQ(mutex() == nullptr, call == "createMutex");
        EXPECT_EQ(OwnedHandle(createWaitableTimer(true)) == nullptr, call == "createWaitableTimer");
    }
    EXPECT_FALSE(setEvent(nullptr) || resetEvent(nullptr) || pulseEvent(nullptr) || releaseMutex(nullptr) ||
                 setWaitableTimer(nullptr, 0, 0) || cancelWaitableTimer(nullptr));
    EXPECT_FALSE(setEvent(mutex().get()) || releaseMutex(event().get()) || setWaitableTimer(event().get(), 0, 0));
}

TEST(Wait, AMutexGuardsItsDataWhateverWayItIsTaken) {
    const auto subject = mutex(), second = mutex();
    const std::array<WaitHandle, 2> both{second.get(), subject.get()};
    long counter = 0;
    constexpr int kRounds = 4000;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kRounds; ++i) {
                std::uint32_t taken = kWaitTimeout;
                while (taken == kWaitTimeout) {
                    if (t == 0) taken = waitForMany(both, true, kInfinite);
                    if (t == 1) taken = waitForMany({&both[1], 1}, false, 1);
                    if (t >= 2) taken = waitForOne(subject.get(), t == 2 ? kInfinite : 0);
                }
                ++counter;
                releaseMutex(subject.get());
                if (t == 0) releaseMutex(second.get());
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(counter, 4 * kRounds);
}

TEST(Wait, SignalsAreNeitherLostNorDoubled) {
    const auto a = event(), b = event(), stop = event(true);
    const std::array<WaitHandle, 3> handles{a.get(), b.get(), stop.get()};
    constexpr int kSignals = 5000;
    std::atomic<int> taken{0};
    std::vector<std::thread> waiters;
    for (int t = 0; t < 3; ++t) {
        waiters.emplace_back([&] {
            while (waitForMany(handles, false, kInfinite) != 2)
                ++taken;
        });
    }
    for (int i = 0; i < kSignals; ++i) {
        setEvent(i % 2 == 0 ? a.get() : b.get());
        kit::await([&] { return taken == i + 1; });
    }
    setEvent(stop.get());
    for (auto& waiter : waiters)
        waiter.join();
    EXPECT_EQ(taken, kSignals);
}

TEST(Wait, AnEventMayBeClosedByWhomItsSignalReleased) {
    for (int i = 0; i < 2000; ++i) {
        const WaitHandle done = createEvent(false, false);
        std::thread setter([done] { setEvent(done); });
        ASSERT_EQ(waitForOne(done, kInfinite), kWaitObject0);
        closeHandle(done);
        setter.join();
    }
}

}  // namespace
