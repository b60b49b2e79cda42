// What every back end of platform/wait.h must do, beyond what the tests of locks and events (tests/sync) need.
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
void expectBlocked(const std::future<std::uint32_t>& wait) {
    EXPECT_EQ(wait.wait_for(30ms), std::future_status::timeout);
}

// Another thread's wait for an object. A mutex is released again.
std::uint32_t waitElsewhere(WaitHandle handle, std::uint32_t timeout) {
    return elsewhere([=] {
               const std::uint32_t result = waitForOne(handle, timeout);
               if (result != kWaitTimeout) releaseMutex(handle);
               return result;
           })
        .get();
}

TEST(Wait, ResetsAnAutoResetEvent) {
    for (const bool manual : {false, true}) {
        const auto subject = event(manual);
        EXPECT_TRUE(setEvent(subject.get()));
        EXPECT_EQ(waitForOne(subject.get(), 0), kWaitObject0);
        EXPECT_EQ(waitForOne(subject.get(), 0), manual ? kWaitObject0 : kWaitTimeout);
        EXPECT_TRUE(resetEvent(subject.get()));
        const auto begin = Clock::now();
        EXPECT_EQ(waitForOne(subject.get(), 30), kWaitTimeout);
        EXPECT_GE(Clock::now() - begin, 30ms);
        EXPECT_EQ(waitForOne(event(manual, true).get(), kInfinite), kWaitObject0);
    }
}

TEST(Wait, ReceivesPulseOnlyWhileItLasts) {
    for (const bool manual : {false, true}) {
        const auto subject = event(manual), other = event(), begun = event();
        pulseEvent(subject.get());
        EXPECT_EQ(waitForOne(subject.get(), 0), kWaitTimeout);
        const auto waiter = [&] {
            auto wait = elsewhere([&] { return signalAndWait(begun.get(), subject.get(), kInfinite); });
            waitForOne(begun.get(), kInfinite);
            return wait;
        };
        auto first = waiter(), second = waiter();
        expectBlocked(first);
        pulseEvent(subject.get());
        EXPECT_EQ(first.get(), 0U);
        if (!manual) {
            expectBlocked(second);
            pulseEvent(subject.get());
        }
        EXPECT_EQ(second.get(), 0U);
        const std::array both{other.get(), subject.get()};
        auto any = elsewhere([&] { return waitForMany(both, false, kInfinite); });
        while (any.wait_for(1ms) != std::future_status::ready)  // it may begin to wait after some pulses
            pulseEvent(subject.get());
        EXPECT_EQ(any.get(), 1U);
        EXPECT_EQ(waitForOne(subject.get(), 0), kWaitTimeout);
    }
}

TEST(Wait, ConsumesAllObjectsOrNone) {
    const auto a = event(), b = event(true), m = mutex();
    const std::array handles{a.get(), m.get(), b.get()};
    setEvent(a.get());
    EXPECT_EQ(waitForMany(handles, true, 10), kWaitTimeout);
    EXPECT_EQ(waitElsewhere(m.get(), 0), kWaitObject0);
    EXPECT_EQ(waitForOne(a.get(), 0), kWaitObject0);
    waitForOne(m.get(), 0);
    auto all = elsewhere([&] { return waitForMany(handles, true, kInfinite); });
    setEvent(a.get());
    setEvent(b.get());
    expectBlocked(all);
    releaseMutex(m.get());
    EXPECT_EQ(all.get(), kWaitObject0);
    EXPECT_EQ(waitForOne(a.get(), 0), kWaitTimeout);
    EXPECT_EQ(waitForOne(b.get(), 0), kWaitObject0);
}

TEST(Wait, RefusesWrongArguments) {
    std::vector<OwnedHandle> owners;
    std::vector<WaitHandle> handles;
    for (std::size_t i = 0; i <= kMaximumWaitObjects; ++i)
        handles.push_back(owners.emplace_back(createEvent(true, i + 1 >= kMaximumWaitObjects)).get());
    const WaitHandle signalled = handles.back();
    EXPECT_EQ(waitForMany({handles.data(), kMaximumWaitObjects}, false, 0), kMaximumWaitObjects - 1);
    EXPECT_EQ(waitForMany(handles, false, 0), kWaitFailed);
    EXPECT_EQ(waitForMany({}, true, 0), kWaitFailed);
    EXPECT_EQ(waitForMany(std::array{signalled, WaitHandle{}}, false, 0), kWaitFailed);
    EXPECT_EQ(waitForMany(std::array{signalled, signalled}, true, 0), kWaitFailed);
    EXPECT_EQ(waitForOne(nullptr, 0), kWaitFailed);
    const kit::FailingCalls failing("createWaitableTimer");
    EXPECT_EQ(createWaitableTimer(true), nullptr);
    for (const auto& call : {&setEvent, &resetEvent, &pulseEvent, &releaseMutex, &cancelWaitableTimer})
        EXPECT_FALSE(call(call == &releaseMutex ? signalled : mutex().get()));
    EXPECT_FALSE(setWaitableTimer(signalled, 0, 0));
}

TEST(Wait, ReportsAnAbandonedMutexOnce) {
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
            EXPECT_FALSE(releaseMutex(subject.get()));
            resetEvent(other.get());
            auto waiter = elsewhere([&] { return late ? waitElsewhere(subject.get(), kInfinite) : kWaitAbandoned; });
            if (late) expectBlocked(waiter);
            end.open();
            owner.join();
            EXPECT_EQ(waiter.get(), kWaitAbandoned);
            setEvent(other.get());
            EXPECT_EQ(wait(), late ? kWaitObject0 : kWaitAbandoned);
            EXPECT_TRUE(releaseMutex(subject.get()));
            EXPECT_FALSE(releaseMutex(subject.get())) << "a level of the ended owner is left";
        }
    }
}

TEST(Wait, EndsWhenTimerIsDue) {
    constexpr std::int64_t kMillisecond = 10'000, kHour = 36'000'000'000;
    for (const bool manual : {false, true}) {
        const OwnedHandle subject(createWaitableTimer(manual));
        EXPECT_EQ(waitForOne(subject.get(), 0), kWaitTimeout);
        EXPECT_TRUE(setWaitableTimer(subject.get(), kHour, 0));
        auto waiter = elsewhere([&] { return waitForMany(std::array{subject.get()}, false, kInfinite); });
        expectBlocked(waiter);
        const auto begin = Clock::now();
        setWaitableTimer(subject.get(), 30 * kMillisecond, 0);
        EXPECT_EQ(waiter.get(), kWaitObject0);
        EXPECT_GE(Clock::now() - begin, 30ms);
        EXPECT_EQ(waitForOne(subject.get(), 0), manual ? kWaitObject0 : kWaitTimeout);
        setWaitableTimer(subject.get(), 0, 0);
        cancelWaitableTimer(subject.get());
        EXPECT_EQ(waitForOne(subject.get(), 0), kWaitObject0);
        const auto periodic = Clock::now();
        setWaitableTimer(subject.get(), 10 * kMillisecond, 10);
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(waitForOne(subject.get(), kInfinite), kWaitObject0);
        EXPECT_GE(Clock::now() - periodic, manual ? 10ms : 25ms);
        EXPECT_FALSE(setWaitableTimer(subject.get(), 1, -1));
        EXPECT_TRUE(cancelWaitableTimer(subject.get()));
        waitForOne(subject.get(), 0);
        EXPECT_EQ(waitForOne(subject.get(), 40), manual ? kWaitObject0 : kWaitTimeout);
    }
}

TEST(Wait, BeginsBeforePulseThatAnswersItsSignal) {
    constexpr int kRounds = 300;
    const auto request = event(), answer = event();
    const auto owned = mutex();
    std::thread server([&] {
        for (int i = 0; i < kRounds; ++i) {
            waitForOne(request.get(), kInfinite);
            pulseEvent(answer.get());
        }
    });
    for (int i = 0; i < kRounds; ++i)
        ASSERT_EQ(signalAndWait(request.get(), answer.get(), kInfinite), kWaitObject0);
    server.join();
    waitForOne(owned.get(), 0);
    setEvent(answer.get());
    EXPECT_EQ(signalAndWait(owned.get(), answer.get(), 0), kWaitObject0);
    EXPECT_EQ(waitElsewhere(owned.get(), 0), kWaitObject0);
    EXPECT_EQ(signalAndWait(owned.get(), answer.get(), 0), kWaitFailed);
    EXPECT_EQ(signalAndWait(nullptr, answer.get(), 0), kWaitFailed);
}

TEST(Wait, LosesAndDoublesNoSignal) {
    constexpr int kSignals = 5000;
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
    for (int i = 0; i < kSignals; ++i) {
        setEvent(i % 2 == 0 ? a.get() : b.get());
        kit::await([&] { return taken > i; });
    }
    setEvent(stop.get());
    waiters.clear();
    EXPECT_EQ(taken, kSignals);
}

// The table of contended mutexes has fewer chains than these mutexes, so some share one. No waiter ends early, since
// its end would offer the mutexes of the others.
TEST(Wait, EndsForEachOfManyReleasedMutexes) {
    for (const bool ends : {true, false}) {
        constexpr std::size_t kWaiters = 20;
        std::vector<OwnedHandle> owners(kWaiters * kMaximumWaitObjects);
        std::vector<WaitHandle> handles;
        for (OwnedHandle& each : owners)
            handles.push_back((each = mutex()).get());
        kit::Gate owned, end, over;
        std::jthread owner([&] {
            for (const WaitHandle handle : handles)
                waitForOne(handle, kInfinite);
            owned.open();
            end.pass();
            if (ends) return;
            for (std::size_t w = 0; w < kWaiters; ++w)
                releaseMutex(handles[w * kMaximumWaitObjects + w]);
            over.pass();
        });
        owned.pass();
        std::vector<std::atomic<std::uint32_t>> results(kWaiters);
        std::vector<std::jthread> waiters;
        for (std::size_t w = 0; w < kWaiters; ++w) {
            results[w] = kWaitFailed;
            waiters.emplace_back([&, w] {
                results[w] = waitForMany({&handles[w * kMaximumWaitObjects], kMaximumWaitObjects}, false, kInfinite);
                over.pass();
            });
        }
        std::this_thread::sleep_for(30ms);
        EXPECT_EQ(results[0], kWaitFailed);
        end.open();
        for (std::uint32_t w = 0; w < kWaiters; ++w) {
            kit::await([&] { return results[w] != kWaitFailed; });
            EXPECT_GE(results[w], ends ? kWaitAbandoned : w);
            EXPECT_LT(results[w], ends ? kWaitAbandoned + kMaximumWaitObjects : w + 1);
        }
        over.open();
    }
}

TEST(Wait, LetsReleasedThreadCloseObject) {
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

}  // namespace
