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
#include "support/exceptions.h"
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
    } rows[] = {{0, 40, 40ms},   {0, 1500, 1500ms}, {-1, 1300, 300ms},
                {0, 200, 200ms}, {kLeast, 1, 0ms},  {1, kLeast, 0ms}};
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
    const auto before = Clock::now();
    timer.start(1000, true);
    EXPECT_EQ(timer.wait(50), kTimedOut);
    timer.reset();
    EXPECT_EQ(timer.wait(-1), kSignalled);
    EXPECT_GE(Clock::now() - before, 1050ms);

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
        void start(std::int32_t seconds, std::int32_t milliseconds, bool) override {
            interval = {seconds, milliseconds};
        }
        std::pair<std::int32_t, std::int32_t> interval;
    };
    const std::pair<std::int32_t, std::int32_t> rows[][2] = {
        {{0, 0}, {0, 0}}, {{0, -300}, {0, -300}}, {{1, -1300}, {0, -300}},        {{-4, 2000}, {-2, 0}},
        {{0, 1}, {0, 1}}, {{7, 2999}, {9, 999}},  {{kLeast, -1000}, {kLeast, 0}}, {{kMost, kMost}, {kMost, 647}}};
    for (const auto& [given, normalised] : rows) {
        Recorder recorder(given.first, given.second, true);
        recorder.reset();  // through the table
        EXPECT_EQ(recorder.interval, normalised);
        if (normalised.first > 0 || normalised.second > 0) continue;
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
    const struct {
        bool oneShot;
        std::function<void()> onFire;
        std::function<bool()> onAsk;
    } rows[] = {{false, [&] { timer.fired == 3 ? timer.stop() : void(); }, nullptr},
                {true, [&] { timer.fired < 3 ? timer.start(40, true) : void(); }, nullptr},
                {true, nullptr, startElsewhere},
                {false, nullptr, [&] { return timer.fired == 2 ? (timer.stop(), false) : startElsewhere(); }}};
    for (const auto& row : rows) {
        asked = timer.fired = 0;
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
    std::string order;
    std::vector<std::thread::id> threads;
    const auto note = [&](char name) {
        order += name;
        threads.push_back(std::this_thread::get_id());
    };
    first.onFire = [&] { note('1'); };
    inside.onFire = [&] { note('i'); };
    second.onFire = [&] {
        note('2');
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
    EXPECT_EQ(order, "2i1");
    EXPECT_EQ(threads, std::vector(3, threads.front()));
    EXPECT_NE(threads.front(), std::this_thread::get_id());

    // What is due already fires before the call returns, unless the thread defers it.
    first.start(-5, 1000, true);
    EXPECT_EQ(first.wait(0), kSignalled);
    EXPECT_EQ(threads.back(), std::this_thread::get_id());
    const KestTimerDeferral deferral;
    first.start(-5, 1000, true);
    EXPECT_EQ(first.wait(-1), kSignalled);
    EXPECT_NE(threads.back(), std::this_thread::get_id());
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
    for (const bool whenAsked : {true, false}) {
        struct Firer : KestThread {
            explicit Firer(KestTimer& timerToFire) : m_timer(timerToFire) {}
            ~Firer() override { kill(); }
            using KestThread::run;
            int run() override {
                m_timer.start(-5, 1000, false);
                return 0;
            }
            KestTimer& m_timer;
        } firer(timer);
        kit::Gate hangs;
        std::atomic<bool> isFirst{true};
        const auto hangOnce = [&](bool isHere) { return isHere && isFirst.exchange(false) ? hang(hangs) : false; };
        timer.onAsk = [&] { return hangOnce(whenAsked); };
        timer.onFire = [&] { hangOnce(!whenAsked); };
        timer.fired = 0;
        firer.start();
        hangs.pass();
        firer.kill();
        other.start(10, true);
        EXPECT_EQ(other.wait(-1), kSignalled);
        kit::await([&] { return timer.fired >= 3; });
        timer.stop();
    }
}

const kit::ChildRole exitRole("timers-exit", [](const std::vector<std::string>& arguments) {
    static auto& firing = *new kit::Gate;
    static auto& timer = *new Probe;
    timer.onFire = [] { hang(firing); };
    timer.start(arguments[0] == "firing" ? 1 : 600'000, false);
    if (arguments[0] == "firing") firing.pass();
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
    try {
        KestTimerManager::getInstance();
    } catch (const KestException& exception) {
        return exception.getText() == "KestTimerManager::getInstance: Exiting system" && exception.getCode() == 0 ? 0
                                                                                                                  : 3;
    }
    return 4;
});

TEST(Timers, DoNothingOnceTheLibraryIsTornDown) {
    EXPECT_EQ(kit::ChildProcess::inRole("timers-tear-down").wait(), 0);
    EXPECT_EQ(kit::ChildProcess::inRole("timers-exit", {"waiting"}).wait(), 0);
    EXPECT_EQ(kit::ChildProcess::inRole("timers-exit", {"firing"}).wait(), 0);
}

// The list as it is described to its users: one sequence, searched from the front.
class PlainList {
  public:
    void insert(internal::TimerEntry& entry) {
        const auto isLater = [&](const auto* other) { return other->expirySeconds >= entry.expirySeconds; };
        m_entries.insert(std::find_if(m_entries.begin(), m_entries.end(), isLater), &entry);
    }
    void remove(internal::TimerEntry& entry) { std::erase(m_entries, &entry); }
    internal::TimerEntry* takeDue(std::int64_t now) {
        for (internal::TimerEntry* entry : m_entries) {
            if (entry->expirySeconds > now || std::count(m_fired.begin(), m_fired.end(), entry) != 0) continue;
            m_fired.push_back(entry);
            remove(*entry);
            return entry;
        }
        m_fired.clear();
        return nullptr;
    }
    internal::TimerEntry* first() const { return m_entries.empty() ? nullptr : m_entries.front(); }

  private:
    std::vector<internal::TimerEntry*> m_entries, m_fired;
};

TEST(Timers, KeepTheOrderOfAPlainListWhateverTheClockDoes) {
    std::mt19937 random(20261122);
    const auto upTo = [&](int most) { return static_cast<int>(random() % static_cast<unsigned>(most)); };
    std::int64_t now = 1'800'000'000;
    internal::TimerQueue queue(now);
    PlainList plain;
    internal::TimerEntry entries[60];
    const int ranges[] = {1, 2, 3, 5, 64, 4096, 4200, 20'000};
    const auto change = [&](internal::TimerEntry& entry) {
        queue.remove(entry);
        plain.remove(entry);
        ASSERT_FALSE(queue.contains(entry));
        if (upTo(3) == 0) return;
        entry.expirySeconds = now + upTo(ranges[upTo(8)]) - (upTo(8) == 0 ? upTo(200) : 0);
        queue.insert(entry);
        plain.insert(entry);
    };
    for (int round = 0; round < 20'000; ++round) {
        if (upTo(4) == 0) now += upTo(10) == 0 ? upTo(3000) : upTo(3);
        if (upTo(500) == 0) now -= upTo(4) == 0 ? 10'000 : upTo(100);
        queue.settle(now);
        for (int i = upTo(6); i > 0; --i)
            change(entries[upTo(60)]);
        ASSERT_TRUE(queue.first() == nullptr || queue.first() == plain.first());
        ASSERT_EQ(queue.empty(), plain.first() == nullptr);
        queue.beginPass();
        for (internal::TimerEntry* due = nullptr; (due = queue.takeDue(now)) != nullptr;) {
            ASSERT_EQ(due, plain.takeDue(now)) << "round " << round;
            for (int i = upTo(3); i > 0; --i)
                change(upTo(2) == 0 ? *due : entries[upTo(60)]);
        }
        ASSERT_EQ(plain.takeDue(now), nullptr);
        queue.endPass();
    }
}

}  // namespace
