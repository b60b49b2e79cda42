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

bool hang(kit::Gate& hangs) {
    for (hangs.open();; platform::sleepThread(1000)) {
    }
}

TEST(Timers, FireAfterTheirIntervalAndNotBefore) {
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

    // Its interval is over before its second begins: no thread after thread until then.
    KestTimerManager::cancelWait();
    const kit::FailingCalls counted("createThread", kMost);
    timer.start(1, -999, true);
    EXPECT_EQ(timer.wait(-1), kSignalled);
    EXPECT_LE(counted.seen(), 2);
    EXPECT_EQ(late.wait(0), kTimedOut);
}

TEST(Timers, HoldTheNormalisedIntervalAndStartOnlyWithAPositivePart) {
    struct Recorder : KestTimer {
        using KestTimer::KestTimer;
        void start(std::int32_t seconds, std::int32_t milliseconds, bool) override {
            interval = {seconds, milliseconds};
        }
        std::pair<std::int32_t, std::int32_t> interval;
    };
    const std::pair<std::int32_t, std::int32_t> rows[][2] = {
        {{0, -300}, {0, -300}}, {{1, -1300}, {0, -300}},        {{-4, 2000}, {-2, 0}},
        {{7, 2999}, {9, 999}},  {{kLeast, -1000}, {kLeast, 0}}, {{kMost, kMost}, {kMost, 647}}};
    for (const auto& [given, normalised] : rows) {
        Recorder recorder(given.first, given.second, true);
        recorder.reset();  // through the table
        EXPECT_EQ(recorder.interval, normalised);
        if (normalised.first > 0) continue;
        KestTimer timer;
        timer.start(10, false);
        timer.start(normalised.first, normalised.second, false);
        EXPECT_EQ(timer.wait(40), kTimedOut) << normalised.first << " s " << normalised.second << " ms";
    }
}

TEST(Timers, FireUntilTheyAreStoppedOrSaySoInsideTheirOwnFiring) {
    Probe timer;
    KestTimer other;
    std::atomic<int> asked{0};
    const std::function<bool()> startElsewhere = [&] {
        std::thread([&] { other.start(60, 0, true); }).join();  // asking must not hold a lock
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
        EXPECT_EQ(timer.wait(-1), kSignalled);
        EXPECT_EQ(timer.wait(120), kTimedOut);
        EXPECT_EQ(timer.fired, 3);
    };
    expectThreeFirings(
        false, [&] { timer.fired == 3 ? timer.stop() : void(); }, nullptr);
    expectThreeFirings(
        true, [&] { timer.fired < 3 ? timer.start(40, true) : void(); }, nullptr);
    expectThreeFirings(true, nullptr, startElsewhere);
    expectThreeFirings(false, nullptr, [&] { return timer.fired == 2 ? (timer.stop(), false) : startElsewhere(); });
}

TEST(Timers, OfOneSecondFireInOnePassTheLastStartedFirst) {
    Probe first, second, inside;
    std::vector<std::pair<char, std::thread::id>> fired;
    const auto note = [&](char name) { return [&, name] { fired.emplace_back(name, std::this_thread::get_id()); }; };
    first.onFire = note('1');
    inside.onFire = note('i');
    second.onFire = [&] {
        note('2')();
        inside.start(1, true);
        throw 1;  // nobody's: the pass goes on
    };
    for (std::time_t now = 0; now != std::time(nullptr);) {
        now = std::time(nullptr);
        first.start(1, 0, true);
        second.start(1, 0, true);
    }
    EXPECT_EQ(first.wait(-1), kSignalled);
    first.stop();  // returns when the pass is over
    const std::thread::id pass = fired.front().second, here = std::this_thread::get_id();
    EXPECT_NE(pass, here);
    EXPECT_EQ(fired, (std::vector<std::pair<char, std::thread::id>>{{'2', pass}, {'i', pass}, {'1', pass}}));

    // What is due already fires before the call returns, unless the thread defers it.
    first.start(-5, 1000, true);
    EXPECT_EQ(first.wait(0), kSignalled);
    EXPECT_EQ(fired.back().second, here);
    const KestTimerDeferral deferral;
    first.start(-5, 1000, true);
    EXPECT_EQ(first.wait(-1), kSignalled);
    EXPECT_NE(fired.back().second, here);
}

TEST(Timers, AreDestroyedOnlyAfterAFiringElsewhereForWhichNothingElseWaits) {
    kit::Gate firing, release, done;
    std::atomic<bool> over{false};
    Probe dependent;
    dependent.onFire = [&] {
        firing.open();
        release.pass();
        over = true;
    };
    KestTimer other;
    auto timer = std::make_unique<KestTimer>();
    timer->addDependent(dependent);
    timer->start(10, false);
    firing.pass();
    timer->reset();
    other.start(10, true);
    EXPECT_EQ(other.wait(50), kTimedOut);
    const std::jthread destroyer([&] {
        timer.reset();
        EXPECT_TRUE(over);
        done.open();
    });
    EXPECT_FALSE(done.passWithin(80ms));
    release.open();
    EXPECT_EQ(other.wait(-1), kSignalled);
}

TEST(Timers, StayStoppedWhenAFiringElsewhereStartsThemAgain) {
    Probe timer;
    kit::Gate firing;
    timer.onFire = [&] {
        if (timer.fired != 1) return;
        firing.open();
        platform::sleepThread(50);  // most likely the stop has begun by then
        timer.start(0, 1, true);
    };
    timer.start(0, 1, true);
    firing.pass();
    timer.stop();
    timer.wait(0);  // for the firing that was
    EXPECT_EQ(timer.wait(30), kTimedOut);
}

TEST(Timers, OutliveThreadsThatCannotBeMadeOrAreKilled) {
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
    for (const bool whenAsked : {true, false}) {
        kit::Gate hangs;
        std::atomic<bool> isFirst{true};
        const auto hangOnce = [&](bool isHere) { return isHere && isFirst.exchange(false) ? hang(hangs) : false; };
        timer.onAsk = [&] { return hangOnce(whenAsked); };
        timer.onFire = [&] { hangOnce(!whenAsked); };
        timer.fired = 0;
        const auto fire = [](void* toFire) { return static_cast<KestTimer*>(toFire)->start(-5, 1000, false), 0U; };
        platform::WaitHandle firer = nullptr;
        platform::createThread(fire, static_cast<KestTimer*>(&timer), firer);
        hangs.pass();
        platform::terminateThread(firer, 0);
        platform::closeHandle(firer);
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
    KestTimerManager::deleteInstance();
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
    if (other.wait(60) != kTimedOut || timer.wait(60) != kTimedOut) return 2;
    const std::string failure = kit::failureOf([] { KestTimerManager::getInstance(); });
    return failure == "KestTimerManager::getInstance: Exiting system" ? 0 : 3;
});

TEST(Timers, DoNothingOnceTheLibraryIsTornDown) {
    EXPECT_EQ(kit::ChildProcess::inRole("timers-tear-down").wait(), 0);
    EXPECT_EQ(kit::ChildProcess::inRole("timers-exit").wait(), 0);
}

TEST(Timers, AreDueByTheCalendarOrByTheSteadyClockWhicheverIsFirst) {
    Probe hour, day, minute;
    const auto expectFired = [&](int hours, int days, int minutes) {
        EXPECT_TRUE(hour.fired == hours && day.fired == days && minute.fired == minutes)
            << hour.fired << day.fired << minute.fired;
    };
    hour.start(3600, 0, false);
    day.start(86'400, 0, true);
    platform::stepClocks(7200, 0);
    minute.start(60, 0, false);  // fires what the step made due
    expectFired(1, 0, 0);
    platform::stepClocks(0, 86'400);  // the steady clock alone, as after a step back
    platform::stepClocks(-3600, 0);
    kit::await([&] { return day.fired == 1; });
    expectFired(2, 1, 1);
    platform::stepClocks(3600 - 7200, -86'400);
    hour.stop(), minute.stop();
}

TEST(Timers, StartedAndStoppedAtOnceAreOneOrTheOther) {
    static_assert(std::is_constructible_v<KestTimer, int, bool> && !std::is_constructible_v<KestTimer, int, int>);
    Probe timer;
    const std::jthread stopper([&] {
        for (int i = 0; i < 100'000; ++i)
            timer.start(0, 0, false);
    });
    for (int i = 0; i < 100'000; ++i)
        timer.start(60, 0, false);
    EXPECT_EQ(timer.fired, 0);
}

TEST(Timers, KeepTheOrderOfAPlainListWhateverTheClocksDo) {
    using Entry = internal::TimerEntry;
    std::mt19937 random(20261122);
    const auto upTo = [&](int most) { return static_cast<int>(random() % static_cast<unsigned>(most)); };
    constexpr std::int64_t kSecond = 1'000'000'000;
    std::int64_t now = 1'800'000'000, steady = 0;
    internal::TimerQueue queue(now);
    // As it is described to its users: one sequence, searched from the front.
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
        if (step < 0) {  // none is due later than its interval
            for (Entry* entry : plain)
                entry->expirySeconds = std::min(entry->expirySeconds, entry->deadline / kSecond + now - steady);
            std::sort(plain.begin(), plain.end(), [](const Entry* one, const Entry* other) {
                return std::pair(one->expirySeconds, other->sequence) < std::pair(other->expirySeconds, one->sequence);
            });
        }
        for (int i = upTo(6); i > 0; --i)
            change(entries[upTo(60)]);
        ASSERT_EQ(queue.empty(), plain.empty());
        ASSERT_TRUE(queue.first() == nullptr || queue.first() == plain.front());
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
