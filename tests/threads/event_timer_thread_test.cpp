#include "support/event_timer_thread.h"

#include <functional>

#include "kit/gate.h"
#include "kit/log_capture.h"

namespace KestSupport {
namespace {

const std::string kPrefix = "KestEventTimerThread::~KestEventTimerThread: ";

struct Recorder : KestDependent {
    void handleNotification(KestCollaborator&, const KestNotification& notification) override {
        if (const auto* done = dynamic_cast<const KestThread::ThreadDone*>(&notification)) exitCode = done->m_exitCode;
        ++calls;
        if (throws) throw 7;
    }
    std::atomic<int> calls{0}, exitCode{-2};
    bool throws = false;
};

struct Worker : KestEventTimerThread {
    Worker(KestTimer& timer, std::function<void()> work) : KestEventTimerThread("worker", timer), m_work(work) {}
    ~Worker() override { endLoop(); }
    void handleTimerEvent() override { m_work(); }
    const std::function<void()> m_work;
};

// Its destructor leaves everything to the base's.
struct Plain : KestEventTimerThread {
    using KestEventTimerThread::KestEventTimerThread;
    void handleTimerEvent() override { ++handled; }
    std::atomic<int> handled{0};
};

TEST(EventTimerThread, HandlesEachFiringOneAtATimeUntilItIsDestroyed) {
    KestTimer timer;
    Recorder ofTimer, ofThread;
    timer.addDependent(ofTimer);
    kit::Gate entered, go;
    std::atomic<int> handled{0}, thread{0};
    {
        Worker worker(timer, [&] {
            thread = KestThread::getCurrentThreadId();
            if (++handled == 1) entered.open();
            go.pass();
        });
        EXPECT_EQ(worker.getName(), "worker");
        worker.addDependent(ofThread);
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
        EXPECT_NE(thread, KestThread::getCurrentThreadId());
        EXPECT_EQ(ofThread.calls, 0);
        ofTimer.calls = 0;
    }
    EXPECT_EQ(ofTimer.calls, 1);
    EXPECT_EQ(ofThread.exitCode, 0);
}

TEST(EventTimerThread, LogsHowItEnds) {
    const kit::LogCapture log;
    KestTimer timer;
    { Plain unstarted("", timer); }
    EXPECT_EQ(log.messages(), (std::vector{kPrefix + "entering", kPrefix + "exiting"}));
    for (const bool explicitly : {false, true}) {
        const kit::LogCapture started;
        if (explicitly) {
            Worker worker(timer, [] {});
            worker.start();
        } else {
            Plain plain("", timer);
            plain.start();
            timer.set();
            kit::await([&] { return plain.handled == 1; });
        }
        EXPECT_EQ(started.messages(), (std::vector{kPrefix + "entering", kPrefix + "setting exit event",
                                                   kPrefix + "waiting for thread to exit", kPrefix + "exiting"}));
    }
    const kit::LogCapture quiet(8);
    Worker(timer, [] {}).start();
    EXPECT_EQ(quiet.text(), "");
}

TEST(EventTimerThread, WhatTheWorkThrowsEndsTheLoop) {
    KestTimer timer;
    Recorder done;
    Worker worker(timer, [] { throw 7; });
    worker.addDependent(done);
    timer.set();
    worker.start();
    worker.waitForThreadExit();
    EXPECT_EQ(done.calls, 1);
    EXPECT_EQ(worker.getExitCode(), 0);
    worker.start();
    timer.set();
    worker.waitForThreadExit();
    EXPECT_EQ(done.calls, 1);
}

TEST(EventTimerThread, EndsAlsoWhenItsLastSignalIsLost) {
    KestTimer timer;
    std::atomic<int> handled{0};
    {
        Worker first(timer, [&] { ++handled; }), second(timer, [&] { ++handled; });
        first.start();
        second.start();
        timer.set();
        kit::await([&] { return handled == 1; });
    }
    Recorder throwing;
    throwing.throws = true;
    timer.addDependent(throwing);
    {
        Worker worker(timer, [] {});
        worker.start();
    }
    EXPECT_EQ(throwing.calls, 1);
    Worker informed(timer, [] {});
    informed.setWorkInfo(new KestWorkInformation);
    informed.start();
}

}  // namespace
}  // namespace KestSupport
