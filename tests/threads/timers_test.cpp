#include "support/timers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <functional>
#include <limits>
#include <random>
#include <thread>

#include "kit/child_process.h"
#include "kit/failing_calls.h"
#include "kit/gate.h"
#include "platform/thread.h"
#include "support/threads.h"
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
struct Probe : KestTimer, private KestDependent {
    Probe() { addDependent(*this); }
    ~Probe() override { stop(); }
    bool isOneShot() const override {
        if (onAsk) onAsk();
        return fired == lastAfter || KestTimer::isOneShot();
    }
    KestNotification* createNotification() override { return &m_notification; }
    void destroyNotification(KestNotification*) override {}
    void handleNotification(KestCollaborator&, const KestNotification& notification) override {
        if (notification.getId() == 1) ++fired;
        if (onFire) onFire();
    }

    std::function<void()> onFire, onAsk;
    int lastAfter = -1;
    std::atomic<int> fired{0};
    KestEventNotification m_notification;
};

TEST(Timers, FireAfterTheirIntervalAndNotBefore) {
    const struct {
        std::int32_t seconds, milliseconds;
        Clock::duration atLeast;
    } rows[] = {{0, 40, 40ms}, {0, 1500, 1500ms}, {-1, 1300, 300ms}, {kLeast, 1, 0ms}, {1, kLeast, 0ms}};
    KestTimer other, timer, late;
    late.start(kMost, kMost, true);
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.seconds << " s " << row.milliseconds << " ms");
        other.start(0, 20, true);  // leaves a thread that waits for an earlier time
        other.stop();
        const auto before = Clock::now();
        timer.start(row.seconds, row.milliseconds, true);
        EXPECT_EQ(timer.wait(-1), kSignalled);
        EXPECT_GE(Clock::now() - before, row.atLeast);
        EXPECT_EQ(timer.wait(0), kTimedOut);
    }
    // Its interval is over before its second begins: no thread after thread until then.
    KestTimerManager::cancelWait();
    const kit::FailingCalls counted("pthread_create", kMost);
    timer.start(1, -999, true);
    EXPECT_EQ(timer.wait(-1), kSignalled);
    EXPECT_LE(counted.seen(), 2);
    EXPECT_EQ(late.wait(0), kTimedOut);
}

TEST(Timers, HoldTheNormalisedIntervalAndStartOnlyWithAPositivePart) {
    struct Recorder : KestTimer {
        using KestTimer::KestTimer;
        void start(std::int32_t seconds, std::int32_t milliseconds, bool oneShot) override {
            held = {seconds, milliseconds};
            KestTimer::start(0, 50, true);  // replaced or ended by the next
            KestTimer::start(seconds, milliseconds, oneShot);
        }
        std::pair<std::int32_t, std::int32_t> held;
    };
    const std::pair<std::int32_t, std::int32_t> rows[][2] = {
        {{0, 0}, {0, 0}},      {{1, -1300}, {0, -300}},        {{-4, 2000}, {-2, 0}},
        {{7, 2999}, {9, 999}}, {{kLeast, -1000}, {kLeast, 0}}, {{kMost, kMost}, {kMost, 647}}};
    for (const auto& [given, normalised] : rows) {
        Recorder timer(given.first, given.second, true);
        timer.reset();
        EXPECT_EQ(timer.held, normalised);
        EXPECT_EQ(timer.wait(90), kTimedOut) << given.first << " s " << given.second << " ms";
    }
}

TEST(Timers, FireUntilTheyAreStoppedOrSaySoInsideTheirOwnFiring) {
    Probe timer;
    KestTimer other;
    const struct {
        bool oneShot;
        int lastAfter;
        std::function<void()> onFire, onAsk;
    } rows[] = {{false, -1, [&] { timer.fired == 3 ? timer.stop() : void(); }, nullptr},
                {true, -1, [&] { timer.fired < 3 ? timer.reset() : void(); }, nullptr},
                {false, 2, nullptr, [&] { std::thread([&] { other.start(60, 0, true); }).join(); }},  // under no lock
                {false, -1, nullptr, [&] { timer.fired == 2 ? timer.stop() : void(); }}};
    for (const auto& row : rows) {
        timer.fired = 0;
        timer.lastAfter = row.lastAfter;
        timer.onFire = row.onFire;
        timer.onAsk = row.onAsk;
        const auto before = Clock::now();
        timer.start(40, row.oneShot);
        kit::await([&] { return timer.fired == 3; });
        EXPECT_GE(Clock::now() - before, 120ms);
        EXPECT_EQ(timer.wait(-1), kSignalled);
        EXPECT_EQ(timer.wait(120), kTimedOut);
        EXPECT_EQ(timer.fired, 3);
    }
}

TEST(Timers, OfOneSecondFireInOnePassTheLastStartedFirst) {
    Probe first, second, inside;
    std::vector<std::pair<const Probe*, std::thread::id>> fired;
    for (Probe* probe : {&first, &inside})
        probe->onFire = [&fired, probe] { fired.emplace_back(probe, std::this_thread::get_id()); };
    second.onFire = [&] {
        fired.emplace_back(&second, std::this_thread::get_id());
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
    const auto thread = fired.front().second;
    EXPECT_EQ(fired, (decltype(fired){{&second, thread}, {&inside, thread}, {&first, thread}}));
    EXPECT_NE(thread, std::this_thread::get_id());

    // What is due already fires before the call returns, unless the thread defers it.
    first.start(-5, 1000, true);
    EXPECT_EQ(first.wait(0), kSignalled);
    EXPECT_EQ(fired.back().second, std::this_thread::get_id());
    const KestTimerDeferral deferral;
    first.start(-5, 1000, true);
    EXPECT_EQ(first.wait(-1), kSignalled);
    EXPECT_NE(fired.back().second, std::this_thread::get_id());
}

TEST(Timers, StopAndDestructionWaitForAFiringElsewhereAndNothingElseDoes) {
    for (const bool destroyed : {false, true}) {
        kit::Gate firing, release, done;
        KestTimer other;
        auto timer = std::make_unique<Probe>();
        std::atomic<bool> over{false};
        timer->onFire = [&] {
            firing.open();
            release.pass();
            over = true;
        };
        timer->start(10, false);
        firing.pass();
        timer->reset();
        other.start(10, true);
        EXPECT_EQ(other.wait(50), kTimedOut);
        std::thread stopper([&] {
            destroyed ? timer.reset() : timer->stop();
            EXPECT_TRUE(over);
            done.open();
        });
        EXPECT_FALSE(done.passWithin(80ms));
        release.open();
        stopper.join();
        EXPECT_EQ(other.wait(-1), kSignalled);
    }
}

TEST(Timers, OutliveThreadsThatCannotBeMadeOrAreKilled) {
    Probe timer;
    KestTimer other;
    KestTimerManager::cancelWait();
    {
        const kit::FailingCalls none("pthread_create");
        timer.start(20, true);
        EXPECT_EQ(timer.wait(60), kTimedOut);
    }
    other.start(60, 0, true);
    EXPECT_EQ(timer.wait(-1), kSignalled);
    KestTimerManager::cancelWait();
    {
        const kit::FailingCalls allButOne("pthread_create", 2);
        timer.start(20, false);
        kit::await([&] { return timer.fired >= 4; });
        timer.stop();
    }
    for (const auto hook : {&Probe::onAsk, &Probe::onFire}) {
        struct Firer : KestThread {
            using KestThread::run;
            int run() override { return timer->start(-5, 1000, false), 0; }
            Probe* timer = nullptr;
        } firer;
        kit::Gate hangs;
        std::atomic<bool> isFirst{true};
        timer.*hook = [&] {
            for (const bool here = isFirst.exchange(false); here; platform::sleepThread(1000))
                hangs.open();
        };
        timer.fired = 0;
        firer.timer = &timer;
        firer.start();
        hangs.pass();
        firer.kill();
        other.start(10, true);
        EXPECT_EQ(other.wait(-1), kSignalled);
        kit::await([&] { return timer.fired >= 3; });
        timer.stop();
        timer.*hook = nullptr;
    }
}

const kit::ChildRole tearDownRole("timers-tear-down", [](const std::vector<std::string>& arguments) {
    auto& firing = *new kit::Gate;
    auto& timer = *new Probe;
    const bool isInside = arguments[0] == "inside";
    timer.onFire = [&firing, isInside] {
        firing.open();
        isInside ? KestTimerManager::deleteInstance() : (new kit::Gate)->pass();
    };
    KestTimer other;
    other.start(60, 0, false);
    timer.start(10, false);
    firing.pass();
    isInside ? void(timer.wait(-1)) : KestTimerManager::deleteInstance();
    other.start(10, true);
    timer.reset();
    return other.wait(60) == kTimedOut && timer.wait(60) == kTimedOut ? 0 : 1;
});

TEST(Timers, DoNothingOnceTheLibraryIsTornDown) {
    for (const char* from : {"inside", "elsewhere"})
        EXPECT_EQ(kit::ChildProcess::inRole("timers-tear-down", {from}).wait(), 0) << from;
}

// The reference is the list as it is described to its users: one sequence, searched from the front.
TEST(Timers, KeepTheOrderOfAPlainListWhateverTheClockDoes) {
    using Entry = internal::TimerEntry;
    std::mt19937 random(20261122);
    const auto upTo = [&](int most) { return static_cast<int>(random() % static_cast<unsigned>(most)); };
    std::int64_t now = 1'800'000'000;
    internal::TimerQueue queue(now);
    Entry entries[60];
    std::vector<Entry*> plain, fired;
    const int ranges[] = {1, 2, 3, 5, 64, 4096, 4200, 20'000};
    const auto change = [&](Entry& entry) {
        queue.remove(entry);
        std::erase(plain, &entry);
        ASSERT_FALSE(queue.contains(entry));
        if (upTo(3) == 0) return;
        entry.expirySeconds = now + upTo(ranges[upTo(8)]) - (upTo(8) == 0 ? upTo(200) : 0);
        queue.insert(entry);
        plain.insert(std::ranges::lower_bound(plain, entry.expirySeconds, {}, &Entry::expirySeconds), &entry);
    };
    const auto isDue = [&](Entry* entry) { return entry->expirySeconds <= now && !std::ranges::count(fired, entry); };
    for (int round = 0; round < 20'000; ++round) {
        if (upTo(4) == 0) now += upTo(10) == 0 ? upTo(3000) : upTo(3);
        if (upTo(500) == 0) now -= upTo(4) == 0 ? 10'000 : upTo(100);
        queue.settle(now);
        for (int i = upTo(6); i > 0; --i)
            change(entries[upTo(60)]);
        ASSERT_EQ(queue.empty(), plain.empty());
        ASSERT_TRUE(queue.first() == nullptr || queue.first() == plain.front());
        fired.clear();
        queue.beginPass();
        for (auto next = plain.begin(); (next = std::ranges::find_if(plain, isDue)) != plain.end();) {
            Entry& due = **next;
            ASSERT_EQ(queue.takeDue(now), &due) << "round " << round;
            plain.erase(next);
            fired.push_back(&due);
            for (int i = upTo(3); i > 0; --i)
                change(upTo(2) == 0 ? due : entries[upTo(60)]);
        }
        ASSERT_EQ(queue.takeDue(now), nullptr);
        queue.endPass();
    }
}

}  // namespace
