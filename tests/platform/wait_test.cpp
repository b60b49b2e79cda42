// What every back end of platform/wait.h must do. What the locks and events of tests/sync need of it is tested there.
#include "platform/wait.h"

#include <array>
#include <chrono>
#include <functional>
#include <future>

#include "kit/failing_calls.h"
#include "kit/gate.h"

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
        EXPECT_TRUE(setEvent(subject.get()));
        EXPECT_EQ(waitForOne(subject.get(), 0), kWaitObject0);
        EXPECT_EQ(waitForOne(subject.get(), 0), manual ? kWaitObject0 : kWaitTimeout);
        EXPECT_TRUE(resetEvent(subject.get()));
        const auto begin = Clock::now();
        EXPECT_EQ(waitForOne(subject.get(), 40), kWaitTimeout);
        EXPECT_EQ(waitForMany(std::array{subject.get()}, true, 20), kWaitTimeout);
        EXPECT_GE(Clock::now() - begin, 60ms);
        EXPECT_EQ(waitForOne(event(manual, true).get(), kInfinite), kWaitObject0);
    }
}

TEST(Wait, APulseReleasesThoseWhoWaitAndLeavesNoSignal) {
    for (const bool manual : {false, true}) {
        const auto subject = event(manual), other = event();
        pulseEvent(subject.get());
        EXPECT_EQ(waitForOne(subject.get(), 0), kWaitTimeout);
        const std::array both{other.get(), subject.get()};
        auto one = elsewhere([&] { return waitForOne(subject.get(), kInfinite); });
        auto any = elsewhere([&] { return waitForMany(both, false, kInfinite); });
        EXPECT_TRUE(stillWaits(one) && stillWaits(any));
        pulseEvent(subject.get());
        EXPECT_TRUE(manual || stillWaits(one) || stillWaits(any)) << "one pulse, one waiter";
        if (!manual) pulseEvent(subject.get());
        EXPECT_EQ(one.get(), 0U);
        EXPECT_EQ(any.get(), 1U);
        EXPECT_EQ(waitForOne(subject.get(), 0), kWaitTimeout);
    }
}

TEST(Wait, AllConsumesTogetherOrNotAtAll) {
    const auto a = event(), b = event(true), m = mutex();
    const std::array handles{a.get(), m.get(), b.get()};
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

TEST(Wait, WhatCannotBeWaitedForFails) {
    std::vector<OwnedHandle> owners;
    std::vector<WaitHandle> handles;
    for (int i = 0; i < 65; ++i)
        handles.push_back(owners.emplace_back(createEvent(true, i >= 63)).get());
    EXPECT_EQ(waitForMany({handles.data(), 64}, false, 0), 63U);
    EXPECT_EQ(waitForMany(handles, false, 0), kWaitFailed);
    EXPECT_EQ(waitForMany({}, true, 0), kWaitFailed);
    EXPECT_EQ(waitForMany(std::array{handles[63], WaitHandle{}}, false, 0), kWaitFailed);
    EXPECT_EQ(waitForMany(std::array{handles[63], handles[63]}, true, 0), kWaitFailed)
        << "the same object twice cannot be taken together";
    EXPECT_EQ(waitForOne(nullptr, 0), kWaitFailed);
    const kit::FailingCalls failing("createWaitableTimer");
    EXPECT_EQ(createWaitableTimer(true), nullptr);
    EXPECT_FALSE(setEvent(nullptr) || resetEvent(nullptr) || pulseEvent(nullptr) || releaseMutex(nullptr) ||
                 setWaitableTimer(nullptr, 0, 0) || cancelWaitableTimer(nullptr));
    EXPECT_FALSE(setEvent(mutex().get()) || releaseMutex(handles[0]) || setWaitableTimer(handles[0], 0, 0));
    closeHandle(nullptr);
}

TEST(Wait, AnEndedOwnerLeavesAMutexAbandonedForTheNextOne) {
    const auto subject = mutex(), other = event(true, true);
    const std::array both{subject.get(), other.get()};
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
            EXPECT_FALSE(releaseMutex(subject.get())) << "another thread's";
            resetEvent(other.get());
            auto waiter = elsewhere([&] { return late ? waitElsewhere(subject.get(), kInfinite) : kWaitAbandoned; });
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
        EXPECT_EQ(waitForOne(subject.get(), 0), kWaitTimeout);
        EXPECT_TRUE(setWaitableTimer(subject.get(), kHour, 0));
        auto waiter = elsewhere([&] { return waitForMany(std::array{subject.get()}, false, kInfinite); });
        EXPECT_TRUE(stillWaits(waiter));
        const auto begin = Clock::now();
        setWaitableTimer(subject.get(), 30 * kMillisecond, 0);
        EXPECT_EQ(waiter.get(), kWaitObject0) << "setting it anew reaches who waits";
        EXPECT_GE(Clock::now() - begin, 30ms);
        EXPECT_EQ(waitForOne(subject.get(), 0), manual ? kWaitObject0 : kWaitTimeout);
        setWaitableTimer(subject.get(), 0, 0);
        EXPECT_TRUE(cancelWaitableTimer(subject.get()));
        EXPECT_EQ(waitForOne(subject.get(), 0), kWaitObject0) << "it was signalled before it was cancelled";
        const auto periodic = Clock::now();
        setWaitableTimer(subject.get(), 10 * kMillisecond, 10);
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(waitForOne(subject.get(), kInfinite), kWaitObject0);
        EXPECT_GE(Clock::now() - periodic, manual ? 10ms : 25ms);
        EXPECT_FALSE(setWaitableTimer(subject.get(), 1, -1));
        EXPECT_TRUE(cancelWaitableTimer(subject.get()));
        waitForOne(subject.get(), 0);
        EXPECT_TRUE(manual || waitForOne(subject.get(), 40) == kWaitTimeout);
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

// One set releases one waiter of an auto-reset event, whichever way it waits, and all of a manual one.
TEST(Wait, SignalsAreNeitherLostNorDoubled) {
    const auto a = event(), b = event(), stop = event(true);
    const std::array handles{a.get(), b.get(), stop.get()};
    std::atomic<int> taken{0};
    std::vector<std::jthread> waiters;
    for (int t = 0; t < 4; ++t) {
        waiters.emplace_back([&, t] {
            for (std::uint32_t result = 0; result != 2;) {
                result = t == 0 ? waitForOne(a.get(), 1) : waitForMany(handles, false, kInfinite);
                if (result < 2) ++taken;
                if (result == kWaitTimeout && waitForOne(stop.get(), 0) == kWaitObject0) return;
            }
        });
    }
    for (int i = 0; i < 5000; ++i) {
        setEvent(i % 2 == 0 ? a.get() : b.get());
        kit::await([&] { return taken > i; });
    }
    setEvent(stop.get());
    waiters.clear();
    EXPECT_EQ(taken, 5000);
}

// More mutexes than the table of contended ones has chains, so that some share one. No waiter ends early: its end
// would offer the mutexes of the others too.
TEST(Wait, AnOwnerOfManyMutexesReleasesEveryWaiter) {
    for (const bool ends : {true, false}) {
        constexpr std::size_t kWaiters = 20;
        std::vector<OwnedHandle> owners;
        std::vector<WaitHandle> handles;
        for (std::size_t i = 0; i < kWaiters * kMaximumWaitObjects; ++i)
            handles.push_back(owners.emplace_back(createMutex()).get());
        kit::Gate owned, end, over;
        std::jthread owner([&] {
            for (const WaitHandle handle : handles)
                waitForOne(handle, kInfinite);
            owned.open();
            end.pass();
            for (std::size_t w = 0; w < kWaiters && !ends; ++w)
                releaseMutex(handles[w * kMaximumWaitObjects + w]);
            if (!ends) over.pass();
        });
        owned.pass();
        std::vector<std::atomic<std::uint32_t>> results(kWaiters);
        std::vector<std::jthread> waiters;
        for (std::size_t w = 0; w < kWaiters; ++w) {
            results[w] = kWaitFailed;
            waiters.emplace_back([&, w] {
                const std::span mine{&handles[w * kMaximumWaitObjects], kMaximumWaitObjects};
                results[w] = waitForMany(mine, false, kInfinite);
                over.pass();
            });
        }
        std::this_thread::sleep_for(30ms);
        EXPECT_EQ(results[0], kWaitFailed);
        end.open();
        for (std::uint32_t w = 0; w < kWaiters; ++w) {
            kit::await([&] { return results[w] != kWaitFailed; });
            EXPECT_TRUE(ends ? results[w] >= kWaitAbandoned : results[w] == w) << results[w];
        }
        over.open();
    }
}

TEST(Wait, AnEventOrMutexMayBeClosedByWhomItReleased) {
    for (int i = 0; i < 2000; ++i) {
        const WaitHandle done = createEvent(false, false), turn = createMutex();
        waitForOne(turn, 0);
        const std::jthread other([=] {
            setEvent(done);
            waitForOne(turn, kInfinite);
            closeHandle(turn);
        });
        ASSERT_EQ(waitForOne(done, kInfinite), kWaitObject0);
        closeHandle(done);
        releaseMutex(turn);
    }
}

// More threads than the C library keeps stacks of end without a word to us; their ids come round again.
TEST(Wait, ThreadsWithoutRoomForAThreadSpecificValueLeaveNoTrace) {
    const auto turn = mutex();
    const auto takeAndRelease = [&] {
        waitForOne(turn.get(), kInfinite);
        releaseMutex(turn.get());
    };
    {
        const kit::FailingCalls failing("attachThread");
        std::atomic<int> used{0};
        kit::Gate end;
        std::vector<std::jthread> threads;
        for (int i = 0; i < 40; ++i) {
            threads.emplace_back([&] {
                takeAndRelease();
                ++used;
                end.pass();
            });
        }
        kit::await([&] { return used == 40; });
        end.open();
    }
    for (int i = 0; i < 300; ++i)
        std::thread(takeAndRelease).join();
    EXPECT_EQ(mutexLevels(turn.get()), 0U);
}

}  // namespace
