#include <gtest/gtest.h>

#include <random>

#include "kit/gate.h"
#include "platform/thread.h"
#include "support/threads.h"
#include "support/timers.h"

namespace {

using namespace KestSupport;

constexpr int kThreads = 10;
constexpr int kTimers = 10'000;

thread_local bool t_mayBeKilled = false;

// A timer that changes itself and a neighbour each time it fires, and notices a firing that it should not have. On a
// thread that may be killed it leaves nothing behind.
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
        if (t_mayBeKilled) {
            ++m_fired;
            return;
        }
        if (m_firing.exchange(true)) ++s_faults;
        if (++m_fired < 50 && s_isWild) {
            thread_local std::mt19937 random(platform::currentThreadId());
            act(static_cast<unsigned>(random()));
            if (m_neighbour != nullptr) m_neighbour->act(static_cast<unsigned>(random()));
        } else if (s_isWild) {
            stop();
        }
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

struct Victim : KestThread {
    explicit Victim(KestTimer& timer) : m_timer(timer) {}
    ~Victim() override { kill(); }
    using KestThread::run;
    int run() override {
        for (t_mayBeKilled = true;;) {
            m_timer.start(30, 0, false);
            m_timer.stop();
            m_timer.reset();
        }
    }
    KestTimer& m_timer;
};

void killSome(Timers& timers) {
    for (auto& timer : timers) {
        Victim victim(*timer);
        victim.start();
        for (std::uint32_t i = 0; i < 3; ++i) {
            platform::sleepThread(i % 2);
            victim.stop();
            victim.start();
        }
    }
}

TEST(TimersStress, TenThousandObeyTenThreadsAndTheirOwnNotificationsWhileOthersAreKilled) {
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

    // Whatever was done to them before: stopped ones do not fire, started ones do.
    std::move(victims.begin(), victims.end(), std::back_inserter(timers));
    Restless::s_isWild = false;
    for (int round = 0; round < 2; ++round)  // a firing under way may start its neighbour after that was stopped
        for (auto& timer : timers)
            timer->stop();
    for (auto& timer : timers)
        timer->m_fired = 0;
    platform::sleepThread(100);
    for (auto& timer : timers)
        ASSERT_EQ(timer->m_fired, 0);
    for (auto& timer : timers)
        timer->start(20, true);
    for (auto& timer : timers)
        kit::await([&] { return timer->m_fired == 1; });
    for (auto& timer : timers)
        timer->start(1, 0, false);
    for (auto& timer : timers)
        kit::await([&] { return timer->m_fired >= 3; });
    timers.clear();
    EXPECT_EQ(Restless::s_faults, 0);
}

}  // namespace
