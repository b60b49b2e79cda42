// Tests many timers, which ten threads and their own notifications change while other threads are killed.

#include <random>

#include "kit/gate.h"
#include "platform/thread.h"
#include "support/timers.h"
#include "threads/function_work.h"

namespace {

using namespace KestSupport;

constexpr int kThreads = 10;
constexpr int kTimers = 10'000;

thread_local bool t_mayBeKilled = false;

// A timer that changes itself and a neighbour at each firing, and counts firings that overlap or outlive it. On a
// thread that may be killed it changes nothing.
class Restless : public KestTimer, private KestDependent {
  public:
    explicit Restless(Restless* neighbour) : m_neighbour(neighbour) { addDependent(*this); }
    ~Restless() override {
        stop();
        if (m_firing) ++s_faults;
    }

    void act(unsigned choice) {
        if (choice % 8 < 2) return stop();
        if (choice % 8 == 2) return reset();
        if (choice % 8 == 3) return start(-3, 1000, true);
        start(static_cast<std::int32_t>(choice / 8 % 60 + 1), choice % 8 < 6);
    }

    static inline std::atomic<bool> s_isWild{true};
    static inline std::atomic<int> s_faults{0};
    std::atomic<int> m_fired{0};

  private:
    KestNotification* createNotification() override { return &m_notification; }
    void destroyNotification(KestNotification*) override {}
    void handleNotification(KestCollaborator&, const KestNotification&) override {
        ++m_fired;
        if (t_mayBeKilled) return;
        if (m_firing.exchange(true)) ++s_faults;
        thread_local std::mt19937 random(platform::currentThreadId());
        if (s_isWild) m_fired < 50 ? act(static_cast<unsigned>(random())) : stop();
        if (s_isWild && m_neighbour != nullptr) m_neighbour->act(static_cast<unsigned>(random()));
        m_firing = false;
    }

    Restless* const m_neighbour;
    std::atomic<bool> m_firing{false};
    KestEventNotification m_notification;
};

using Timers = std::vector<std::unique_ptr<Restless>>;

Timers makeTimers(int count) {
    Timers timers;
    for (int i = 0; i < count; ++i)
        timers.push_back(std::make_unique<Restless>(i % 7 ? timers.back().get() : nullptr));
    return timers;
}

void killSome(Timers& timers) {
    for (auto& timer : timers) {
        KestThread victim(new kit::FunctionWork([&timer] {
            for (t_mayBeKilled = true;; timer->reset()) {
                timer->start(30, 0, false);
                timer->stop();
            }
            return 0;
        }));
        victim.setMarkForKill();
        victim.start();
        for (std::uint32_t i = 0; i < 3; ++i) {
            platform::sleepThread(i % 2);
            victim.stop();
            victim.start();
        }
    }
}

TEST(TimersStress, ObeysStartsAndStopsBesideKilledThreads) {
    Timers timers = makeTimers(kTimers), victims = makeTimers(200);
    std::vector<std::thread> threads;
    for (unsigned number = 0; number < kThreads; ++number) {
        threads.emplace_back([&timers, number] {
            std::mt19937 random(number);
            for (int i = 0; i < 3 * kTimers; ++i) {
                timers[random() % timers.size()]->act(static_cast<unsigned>(random()));
                if (i % 100 != 0) continue;
                Restless brief(nullptr);
                brief.start(1, false);
                if (i % 1000 == 0) brief.wait(-1);
            }
        });
    }
    killSome(victims);
    for (std::thread& thread : threads)
        thread.join();

    // Stopped timers do not fire, and started ones do.
    const auto forEach = [&](auto call) {
        for (auto& timer : timers)
            call(*timer);
    };
    std::move(victims.begin(), victims.end(), std::back_inserter(timers));
    Restless::s_isWild = false;
    for (int round = 0; round < 2; ++round)  // a firing under way may start its neighbour after that was stopped
        forEach([](Restless& timer) { timer.stop(); });
    forEach([](Restless& timer) { timer.m_fired = 0; });
    platform::sleepThread(100);
    forEach([](Restless& timer) { ASSERT_EQ(timer.m_fired, 0); });
    forEach([](Restless& timer) { timer.start(20, true); });
    forEach([](Restless& timer) { kit::await([&] { return timer.m_fired == 1; }); });
    forEach([](Restless& timer) { timer.start(1, 0, false); });
    forEach([](Restless& timer) { kit::await([&] { return timer.m_fired >= 3; }); });
    timers.clear();
    EXPECT_EQ(Restless::s_faults, 0);
}

TEST(TimersStress, LosesNoTimerWithThreadsKilledInPasses) {
    constexpr std::int32_t kOverdue = -1;
    Restless::s_isWild = false;
    Restless periodic(nullptr);
    KestTimer due;
    periodic.start(0, 1, false);
    for (int kills = 0; kills < 200; ++kills) {
        KestThread firer(new kit::FunctionWork([&due] {
            for (t_mayBeKilled = true;;)
                due.start(kOverdue, 1000, true);
            return 0;
        }));
        firer.start();
        int before = periodic.m_fired;
        kit::await([&] { return periodic.m_fired > before + kills % 50; });
        firer.kill();
        before = periodic.m_fired;
        kit::await([&] { return periodic.m_fired > before; });
    }
}

}  // namespace
