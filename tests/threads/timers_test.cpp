// Tests KestTimer: intervals, passes, stopping, clocks that are set, threads that fail, and the order of the list.
#include "support/timers.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <functional>
#include <limits>
#include <random>

#include "kit/child_process.h"
#include "kit/failing_calls.h"
#include "kit/failure_of.h"
#include "kit/gate.h"
#include "platform/clock.h"
#include "platform/thread.h"
#include "support/timer_subscription.h"
#include "threads/function_work.h"
#include "threads/timer_deferral.h"
#include "threads/timer_manager.h"

namespace {

using namespace KestSupport;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr int kSignalled = 0;
constexpr int kTimedOut = -2;
constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t kLeast = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t kHour = 3600;   // seconds
constexpr std::int32_t kOverdue = -5;  // seconds; with a second in milliseconds the timer is due at once

// A timer that is its own dependent. It allocates nothing while it fires, since a killed thread frees nothing.
struct Probe : KestTimer, KestDependent {
    Probe() { addDependent(*this); }
    ~Probe() override { stop(); }
    bool isOneShot() const override { return onAsk ? onAsk() : KestTimer::isOneShot(); }
    KestNotification* createNotification() override { return &m_notification; }
    void destroyNotification(KestNotification*) override {}
    void handleNotification(KestCollaborator&, const KestNotification& notification) override {
        if (notification.getId() == 1) ++fired;
        if (onFire) onFire();
    }

    std::function<void()> onFire;
    std::function<bool()> onAsk;
    std::atomic<int> fired{0};
    KestEventNotification m_notification;
};

[[noreturn]] void hang(kit::Gate& hangs) {
    for (hangs.open();; platform::sleepThread(1000)) {
    }
}

TEST(Timer, CallsFunctionUntilSubscriptionEnds) {
    KestTimer timer;
    kit::Gate entered, release, ended;
    std::atomic<int> calls{0}, once{0};
    KestTimerSubscription* own = nullptr;
    KestTimerSubscription endsItself(timer, [&] {
        ++once;
        own->end();
    });
    own = &endsItself;
    auto subscription = std::make_unique<KestTimerSubscription>(timer, [&] {
        ++calls;
        entered.open();
        release.pass();
        throw 1;
    });
    timer.start(1, false);
    entered.pass();
    std::jthread ending([&] {
        subscription.reset();
        ended.open();
    });
    EXPECT_FALSE(ended.passWithin(30ms)) << "the function is still running";
    release.open();
    ended.pass();
    const int before = calls;
    while (timer.wait(-1) != kSignalled || timer.wait(-1) != kSignalled) {
    }
    EXPECT_EQ(calls, before);
    EXPECT_EQ(once, 1);
    timer.stop();
}

TEST(Timer, FiresAfterItsInterval) {
    const struct {
        std::int32_t seconds, milliseconds;
        Clock::duration atLeast;
    } rows[] = {{0, 40, 40ms}, {0, 1100, 1100ms}, {-1, 1300, 300ms}, {kLeast, 1, 0ms}, {1, kLeast, 0ms}};
    KestTimer other, timer, late;
    late.start(kMost, kMost, true);
    for (const auto& row : rows) {
        other.start(0, 20, true);  // leaves a thread that waits for an earlier time
        other.stop();
        const auto before = Clock::now();
        timer.start(row.seconds, row.milliseconds, true);
        EXPECT_EQ(timer.wait(-1), kSignalled);
        EXPECT_GE(Clock::now() - before, row.atLeast) << row.seconds << " s " << row.milliseconds << " ms";
        EXPECT_EQ(timer.wait(0), kTimedOut);
    }
    // Its interval ends before its second begins. One thread waits for that, not one after another.
    KestTimerManager::cancelWait();
    const kit::FailingCalls counted("createThread", kMost);
    timer.start(1, -999, true);
    EXPECT_EQ(timer.wait(-1), kSignalled);
    EXPECT_LE(counted.seen(), 2);
    EXPECT_EQ(late.wait(0), kTimedOut);
}

TEST(Timer, NormalisesItsInterval) {
    static_assert(std::is_constructible_v<KestTimer, int, bool> && !std::is_constructible_v<KestTimer, int, int>);
    using Interval = std::pair<std::int32_t, std::int32_t>;
    struct Recorder : KestTimer {
        using KestTimer::KestTimer;
        void start(std::int32_t seconds, std::int32_t milliseconds, bool) override {
            interval = {seconds, milliseconds};
        }
        Interval interval;
    };
    const Interval rows[][2] = {{{0, -300}, {0, -300}}, {{1, -1300}, {0, -300}},        {{-4, 2000}, {-2, 0}},
                                {{7, 2999}, {9, 999}},  {{kLeast, -1000}, {kLeast, 0}}, {{kMost, kMost}, {kMost, 647}}};
    for (const auto& [given, normalised] : rows) {
        Recorder recorder(given.first, given.second, true);
        recorder.reset();  // calls start
        EXPECT_EQ(recorder.interval, normalised);
        if (normalised.first > 0) continue;
        KestTimer timer;
        timer.start(kHour, 0, false);
        timer.start(normalised.first, normalised.second, false);
        platform::stepClocks(2 * kHour, 0);
        recorder.KestTimer::start(kHour, 0, true);  // fires what the step made due
        EXPECT_EQ(timer.wait(0), kTimedOut) << normalised.first << " s " << normalised.second << " ms";
        platform::stepClocks(-2 * kHour, 0);
    }
}

TEST(Timer, FiresUntilItIsStopped) {
    Probe timer;
    KestTimer other;
    std::atomic<int> asked{0};
    const std::function<bool()> askElsewhere = [&] {
        std::thread([&] { other.start(60, 0, true); }).join();  // isOneShot is called without a lock
        if (timer.fired == 2 && !timer.KestTimer::isOneShot()) timer.stop();
        return ++asked == 3;
    };
    const auto expectThreeFirings = [&](bool oneShot, std::function<void()> onFire, std::function<bool()> onAsk) {
        asked = timer.fired = 0;
        timer.onFire = onFire;
        timer.onAsk = onAsk;
        const auto before = Clock::now();
        timer.start(40, oneShot);
        kit::await([&] { return timer.fired == 3; });
        EXPECT_GE(Clock::now() - before, 120ms);
        KestTimerManager::waitWhileFiring(timer);  // dependents are notified before the event is set
        EXPECT_EQ(timer.wait(-1), kSignalled);
        EXPECT_EQ(timer.wait(120), kTimedOut);
        EXPECT_EQ(timer.fired, 3);
    };
    expectThreeFirings(
        false, [&] { timer.fired == 3 ? timer.stop() : void(); }, nullptr);
    expectThreeFirings(
        true, [&] { timer.fired < 3 ? timer.start(40, true) : void(); }, nullptr);
    expectThreeFirings(true, nullptr, askElsewhere);
    expectThreeFirings(false, nullptr, askElsewhere);
}

TEST(Timer, FiresTheLastStartedOfASecondFirst) {
    Probe first, second, overdue;
    std::vector<std::pair<char, std::thread::id>> fired;
    const auto note = [&](char name) { return [&, name] { fired.emplace_back(name, std::this_thread::get_id()); }; };
    first.onFire = note('1');
    overdue.onFire = note('o');
    second.onFire = [&] {
        note('2')();
        overdue.start(kOverdue, 1000, true);
        throw 1;  // dropped: the pass continues
    };
    for (std::time_t now = 0; now != std::time(nullptr);) {
        for (Probe* const timer : {&first, &second, &overdue})
            timer->stop(), timer->wait(0);  // a slow attempt may have fired them
        fired.clear();
        now = std::time(nullptr);
        first.start(1, 0, true);
        second.start(1, 0, true);
    }
    EXPECT_EQ(first.wait(-1), kSignalled);
    first.stop();  // returns after the firing
    const std::thread::id pass = fired.front().second, here = std::this_thread::get_id();
    EXPECT_NE(pass, here);
    EXPECT_EQ(fired, (std::vector<std::pair<char, std::thread::id>>{{'2', pass}, {'o', pass}, {'1', pass}}));

    // A due timer fires on the calling thread, unless a pass is under way or the thread defers it.
    const auto fire = [&] {
        first.start(kOverdue, 1000, true);
        EXPECT_EQ(first.wait(-1), kSignalled);
        first.stop();
        return fired.back().second;
    };
    kit::await([&] { return fire() == here; });
    const KestTimerDeferral deferral;
    EXPECT_NE(fire(), here);
}

TEST(Timer, WaitsInStopForAFiringElsewhere) {
    Probe timer;
    KestTimer other;
    kit::Gate firing, release, stopped;
    timer.onFire = [&] {
        firing.open();
        release.pass();
        if (timer.fired == 1) timer.start(0, 1, true);
    };
    timer.start(10, false);
    firing.pass();
    timer.reset();  // does not wait
    other.start(10, true);
    EXPECT_EQ(other.wait(50), kTimedOut) << "one firing at a time";
    const std::jthread stopper([&] {
        timer.stop();
        stopped.open();
    });
    EXPECT_FALSE(stopped.passWithin(80ms));
    release.open();
    EXPECT_EQ(other.wait(-1), kSignalled);
    stopped.pass();
    timer.wait(0);  // takes the signal of the firing
    EXPECT_EQ(timer.wait(30), kTimedOut) << "the start in the firing has no effect";
}

TEST(Timer, FiresWhenThreadsFailOrAreKilled) {
    Probe timer;
    KestTimer other;
    KestTimerManager::cancelWait();
    {
        const kit::FailingCalls none("createThread");
        EXPECT_EQ(kit::failureOf([&] { timer.start(20, true); }),
                  "KestTimer::start: Cannot create a thread that fires timers");
        EXPECT_EQ(timer.wait(60), kTimedOut);
    }
    timer.reset();
    EXPECT_EQ(timer.wait(-1), kSignalled);
    KestTimerManager::cancelWait();
    {
        const kit::FailingCalls allButOne("createThread", 2);
        timer.start(20, false);
        kit::await([&] { return timer.fired >= 4; });
        timer.stop();
    }
    for (const auto& [whenAsked, foundByWait] : {std::pair(true, false), {true, true}, {false, false}}) {
        kit::Gate hangs;
        std::atomic<bool> isFirst{true};
        const auto hangOnce = [&](bool isHere) {
            if (isHere && isFirst.exchange(false)) hang(hangs);
            return false;
        };
        timer.onAsk = [&, here = whenAsked] { return hangOnce(here); };
        timer.onFire = [&, here = !whenAsked] { hangOnce(here); };
        timer.fired = 0;
        KestThread firer(new kit::FunctionWork([&timer] {
            timer.start(kOverdue, 1000, false);
            return 0;
        }));
        firer.start();
        hangs.pass();
        if (foundByWait) {
            platform::terminateThread(*static_cast<platform::WaitHandle*>(firer.getHandle()), 0);
            KestTimerManager::waitWhileFiring(timer);
        }
        firer.kill();
        other.start(10, true);
        EXPECT_EQ(other.wait(-1), kSignalled);
        kit::await([&] { return timer.fired >= 3; });
        timer.stop();
    }
}

const kit::ChildRole exitRole("timers-exit", [](const std::vector<std::string>&) {
    static auto& firing = *new kit::Gate;
    static auto& timer = *new Probe;
    timer.onFire = [] { hang(firing); };
    timer.start(1, false);
    firing.pass();
    return 0;
});

const kit::ChildRole tearDownRole("timers-tear-down", [](const std::vector<std::string>&) {
    Probe timer;
    KestTimer other;
    timer.onFire = [] { KestTimerManager::deleteInstance(); };
    other.start(20, false);
    timer.start(10, false);
    if (timer.wait(-1) != kSignalled) return 1;
    other.start(10, true);
    timer.reset();
    timer.stop();
    return other.wait(60) == kTimedOut && timer.wait(60) == kTimedOut ? 0 : 2;
});

TEST(Timer, HasNoEffectAfterTheTearDown) {
    EXPECT_EQ(kit::ChildProcess::inRole("timers-tear-down").wait(), 0);
    EXPECT_EQ(kit::ChildProcess::inRole("timers-exit").wait(), 0) << "the exit does not wait for a firing that hangs";
}

TEST(Timer, IsDueByTheFirstOfTwoClocks) {
    constexpr int kDay = 24 * kHour;
    Probe hourly, daily, minute;
    const auto firings = [&] { return std::vector<int>{hourly.fired, daily.fired, minute.fired}; };
    hourly.start(kHour, 0, false);
    daily.start(kDay, 0, true);
    platform::stepClocks(2 * kHour, 0);
    minute.start(60, 0, false);  // fires what the step made due
    EXPECT_EQ(firings(), (std::vector{1, 0, 0}));
    platform::stepClocks(0, kDay);  // the steady clock alone, as after a step back
    platform::stepClocks(-kHour, 0);
    kit::await([&] { return daily.fired == 1; });
    EXPECT_EQ(firings(), (std::vector{2, 1, 1}));
    platform::stepClocks(-kHour, -kDay);
    hourly.stop();
    minute.stop();
}

TEST(Timer, IsStartedOrStoppedByRacingCalls) {
    constexpr int kRounds = 100'000;
    Probe timer;
    const std::jthread stopper([&] {
        for (int i = 0; i < kRounds; ++i)
            timer.start(0, 0, false);
    });
    for (int i = 0; i < kRounds; ++i)
        timer.start(60, 0, false);
    EXPECT_EQ(timer.fired, 0);
}

// Compares the queue with one sequence that is searched from the front.
TEST(TimerQueue, KeepsTheOrderOfAPlainList) {
    using Entry = internal::TimerEntry;
    constexpr std::int64_t kSecond = 1'000'000'000;
    std::mt19937 random(20261122);
    const auto upTo = [&](int most) { return static_cast<int>(random() % static_cast<unsigned>(most)); };
    std::int64_t now = 1'800'000'000, steady = 0;
    internal::TimerQueue queue(now);
    std::vector<Entry*> plain, fired;
    Entry entries[60];
    const int ranges[] = {1, 2, 3, 5, 64, 4096, 4200, 20'000};
    const auto change = [&](Entry& entry) {
        queue.remove(entry);
        std::erase(plain, &entry);
        ASSERT_FALSE(queue.contains(entry));
        if (upTo(3) == 0) return;
        const int seconds = upTo(ranges[upTo(8)]) - (upTo(8) == 0 ? upTo(200) : 0);
        entry.expirySeconds = now + seconds;
        entry.deadline = (steady + seconds) * kSecond;
        queue.insert(entry);
        const auto isLater = [&](const Entry* other) { return other->expirySeconds >= entry.expirySeconds; };
        plain.insert(std::find_if(plain.begin(), plain.end(), isLater), &entry);
    };
    const auto isDue = [&](Entry* entry) {
        return entry->expirySeconds <= now && std::count(fired.begin(), fired.end(), entry) == 0;
    };
    for (int round = 0; round < 20'000; ++round) {
        const int rest = upTo(4) != 0 ? 0 : upTo(10) == 0 ? upTo(3000) : upTo(3);
        const int step = upTo(100) != 0 ? 0 : upTo(4) == 0 ? upTo(40'000) - 20'000 : upTo(200) - 100;
        steady += rest;
        now += rest + step;
        queue.observe(steady * kSecond, now * kSecond);
        if (step < 0) {  // no entry is due later than its interval
            for (Entry* entry : plain)
                entry->expirySeconds = std::min(entry->expirySeconds, entry->deadline / kSecond + now - steady);
            std::sort(plain.begin(), plain.end(), [](const Entry* one, const Entry* other) {
                return std::pair(one->expirySeconds, other->sequence) < std::pair(other->expirySeconds, one->sequence);
            });
        }
        for (int i = upTo(6); i > 0; --i)
            change(entries[upTo(60)]);
        ASSERT_EQ(queue.empty(), plain.empty());
        const Entry* const first = queue.first();
        ASSERT_EQ(first, first == nullptr ? first : plain.front());
        queue.beginPass();
        fired.clear();
        for (;;) {
            const auto due = std::find_if(plain.begin(), plain.end(), isDue);
            Entry* const expected = due == plain.end() ? nullptr : *due;
            ASSERT_EQ(queue.takeDue(now), expected) << "round " << round;
            if (expected == nullptr) break;
            plain.erase(due);
            fired.push_back(expected);
            for (int i = upTo(3); i > 0; --i)
                change(upTo(2) == 0 ? *expected : entries[upTo(60)]);
        }
        queue.endPass();
    }
}

}  // namespace
