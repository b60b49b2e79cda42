// Tests KestEventTimerThread: the pace of its loop, its end, and firings that threads share.
#include "support/event_timer_thread.h"

#include <functional>

#include "kit/gate.h"
#include "kit/log_capture.h"

namespace {

using namespace KestSupport;

struct ThrowsOnSecondCall : KestDependent {
    void handleNotification(KestCollaborator&, const KestNotification&) override {
        if (++calls == 2) throw 7;
    }
    int calls = 0;
};

struct Worker : KestEventTimerThread {
    Worker(KestTimer& timer, std::function<void()> work) : KestEventTimerThread("worker", timer), m_work(work) {}
    ~Worker() override { endLoop(); }
    void handleTimerEvent() override { m_work(); }
    const std::function<void()> m_work;
};

TEST(EventTimerThread, HandlesOneFiringAtATime) {
    const std::string prefix = "KestEventTimerThread::~KestEventTimerThread: ";
    const std::string entering = prefix + "entering", exiting = prefix + "exiting";
    const kit::LogCapture log;
    KestTimer timer;
    ThrowsOnSecondCall dependent;
    kit::Gate entered, go;
    std::atomic<int> handled{0};
    {
        const Worker unstarted(timer, [] {});
        Worker worker(timer, [&] {
            if (++handled == 1) entered.open();
            go.pass();
        });
        timer.set();
        worker.start();
        entered.pass();
        timer.set();
        timer.set();
        EXPECT_EQ(handled, 1);
        go.open();
        kit::await([&] { return handled == 2; });
        timer.start(1, false);
        kit::await([&] { return handled >= 4; });
        timer.stop();
        timer.addDependent(dependent);
    }
    EXPECT_EQ(dependent.calls, 1);
    EXPECT_EQ(log.messages(), (std::vector{entering, prefix + "setting exit event",
                                           prefix + "waiting for thread to exit", exiting, entering, exiting}));
}

TEST(EventTimerThread, EndsAfterExceptionsAndLostSignals) {
    KestTimer timer;
    ThrowsOnSecondCall dependent;
    std::atomic<int> handled{0};
    Worker informed(timer, [] {});
    auto throwing = std::make_unique<Worker>(timer, [] { throw 7; });
    informed.setWorkInfo(new KestWorkInformation);
    informed.start();
    timer.set();
    throwing->start();
    throwing->waitForThreadExit();
    throwing->kill();
    Worker first(timer, [&] { ++handled; }), second(timer, [&] { ++handled; });
    first.start();
    second.start();
    timer.set();
    kit::await([&] { return handled == 1; });
    throwing->start();
    EXPECT_FALSE(kit::Gate().passWithin(std::chrono::milliseconds(20))) << "time to reach the wait";
    throwing.reset();
    timer.addDependent(dependent);
}

TEST(EventTimerThread, SharesOneFiringWhenItEndsDuringWork) {
    KestTimer timer;
    kit::Gate entered, release;
    std::atomic<int> shared{0};
    auto busy = std::make_unique<Worker>(timer, [&] {
        entered.open();
        release.pass();
    });
    busy->start();
    timer.set();
    entered.pass();
    Worker other(timer, [&] { ++shared; });
    other.start();
    std::thread destroyer([&] { busy.reset(); });
    kit::await([&] { return shared == 1; });
    constexpr int kThreeRepetitions = 350;  // milliseconds
    EXPECT_EQ(timer.wait(kThreeRepetitions), -2);
    release.open();
    destroyer.join();
    EXPECT_EQ(shared, 1);
}

}  // namespace
