#include <gtest/gtest.h>

#include <random>

#include "kit/gate.h"
#include "platform/thread.h"
#include "support/threads.h"
#include "support/timers.h"

namespace {

using namespace KestSupport;

thread_local bool t_mayBeKilled = false;  // and then leaves nothing behind
std::atomic<bool> isWild{true};
std::atomic<int> faults{0};

// A timer that changes itself and a neighbour each time it fires, and notices a firing that it should not have.
struct Restless : KestTimer, private KestDependent {
    Restless() { addDependent(*this); }
    ~Restless() override {
        stop();
        faults += m_firing;
    }
    void act(unsigned choice) {
        if (choice % 8 < 2) return stop();
        if (choice % 8 == 2) return reset();
        if (choice % 8 == 3) return start(-3, 1000, true);
        start(static_cast<std::int32_t>(choice / 8 % 60 + 1), choice % 8 < 6);
    }
    KestNotification* createNotification() override { return &m_notification; }
    void destroyNotification(KestNotification*) override {}
    void handleNotification(KestCollaborator&, const KestNotification&) override {
        const bool isLast = ++m_fired >= 50;
        if (t_mayBeKilled || !isWild) return;
        faults += m_firing.exchange(true);
        thread_local std::mt19937 random(platform::currentThreadId());
        isLast ? stop() : act(static_cast<unsigned>(random()));
        if (!isLast) m_neighbour->act(static_cast<unsigned>(random()));
        m_firing = false;
    }

    Restless* m_neighbour = this;
    std::atomic<int> m_fired{0};
    std::atomic<bool> m_firing{false};
    KestEventNotification m_notification;
};

struct Victim : KestThread {
    ~Victim() override { kill(); }
    using KestThread::run;
    int run() override {
        for (t_mayBeKilled = true;; m_timer->reset()) {
            m_timer->start(30, 0, false);
            m_timer->stop();
        }
    }
    KestTimer* m_timer = nullptr;
};

TEST(TimersStress, TenThousandObeyTenThreadsAndTheirOwnNotificationsWhileOthersAreKilled) {
    std::vector<Restless> timers(10'000), victims(200);
    for (std::size_t i = 1; i < timers.size(); ++i)
        timers[i].m_neighbour = &timers[i - (i % 7 != 0)];
    std::vector<std::thread> threads;
    for (unsigned number = 0; number < 10; ++number) {
        threads.emplace_back([&timers, number] {
            std::mt19937 random(number);
            for (int i = 0; i < 30'000; ++i) {
                timers[random() % timers.size()].act(static_cast<unsigned>(random()));
                if (i % 100 != 0) continue;
                Restless brief;
                brief.start(1, false);
                if (i % 1000 == 0) brief.wait(-1);
            }
        });
    }
    for (Restless& timer : victims) {
        Victim victim;
        victim.m_timer = &timer;
        victim.start();
        for (std::uint32_t i = 0; i < 3; ++i, victim.start()) {
            platform::sleepThread(i % 2);
            victim.stop();
        }
    }
    for (std::thread& thread : threads)
        thread.join();

    // Whatever was done to them before: stopped ones do not fire, started ones do.
    isWild = false;
    const auto forAll = [&](const auto& act) {
        std::for_each(timers.begin(), timers.end(), act);
        std::for_each(victims.begin(), victims.end(), act);
    };
    forAll([](Restless& timer) { timer.stop(); });
    forAll([](Restless& timer) { timer.m_fired = 0; });
    platform::sleepThread(100);
    forAll([](Restless& timer) { EXPECT_EQ(timer.m_fired, 0); });
    forAll([](Restless& timer) { timer.start(20, true); });
    forAll([](Restless& timer) { kit::await([&] { return timer.m_fired == 1; }); });
    forAll([](Restless& timer) { timer.start(1, 0, false); });
    forAll([](Restless& timer) { kit::await([&] { return timer.m_fired >= 3; }); });
    timers.clear();
    EXPECT_EQ(faults, 0);
}

}  // namespace
