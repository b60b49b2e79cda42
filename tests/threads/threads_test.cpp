// Tests KestThread: its life and results, waits, the end by force, and the end of the object.
#include "support/threads.h"

#include <functional>

#include "kit/failing_calls.h"
#include "kit/gate.h"
#include "kit/system.h"
#include "platform/thread.h"
#include "support/locks.h"
#include "support/stop.h"
#include "threads/function_work.h"

namespace {

using namespace KestSupport;

constexpr int kEnded = 0, kNotRunning = 128, kTimedOut = 258, kSetTimedOut = -2, kFailed = -1, kNoResult = -1;

struct Work : KestThread {
    explicit Work(std::function<int()> work, std::atomic<int>* destroyed = nullptr)
        : KestThread(new kit::FunctionWork(std::move(work))), m_destroyed(destroyed) {}
    ~Work() override { m_destroyed != nullptr ? void(++*m_destroyed) : waitForThreadExit(); }
    std::atomic<int>* const m_destroyed;
};

[[noreturn]] int spin(kit::Gate& spins) {
    spins.open();
    for (std::atomic<int> i{0};; ++i) {
    }
}

struct DoneRecorder : KestDependent {
    void handleNotification(KestCollaborator& sender, const KestNotification& notification) override {
        auto& thread = dynamic_cast<KestThread&>(sender);
        thread.waitForThreadExit();
        exitCodeBefore = thread.getExitCode();
        exitCode = dynamic_cast<const KestThread::ThreadDone&>(notification).m_exitCode;
        ++calls;
        if (onDone) onDone();
    }
    std::function<void()> onDone;
    std::atomic<int> calls{0}, exitCode{-2}, exitCodeBefore{-2};
};

TEST(Thread, RunsOnceAndPausesWhenStopped) {
    kit::Gate running;
    std::atomic<bool> end{false};
    int id = 0;
    const std::string name = "fourteen bytes\xC3\xA4";
    bool isCalledSo = false;
    DoneRecorder done;
    Work thread([&] {
        id = KestThread::getCurrentThreadId();
        isCalledSo = kit::threadIsCalled(name);
        running.open();
        while (!end)
            std::this_thread::yield();
        return 5;
    });
    EXPECT_EQ(thread.getName(), "class KestSupport::KestThread");
    thread.setName(name);
    thread.addDependent(done);
    for (const char* const call : {"createThread", "createEvent"}) {
        const kit::FailingCalls failing(call, 1, true, EAGAIN);
        thread.start();
        EXPECT_FALSE(thread.isAlive());
    }
    EXPECT_EQ(thread.getHandle(), nullptr);
    EXPECT_EQ(thread.getExitCode(), kNoResult);
    EXPECT_EQ(thread.wait(-1), kNotRunning);
    EXPECT_FALSE(thread.setPriority(KestThread::NORMAL));
    thread.waitForThreadExit();
    thread.start();
    EXPECT_TRUE(thread.isAlive());
    EXPECT_EQ(thread.getExitCode(), kNoResult);
    EXPECT_TRUE(thread.setPriority(KestThread::IDLE));
    {
        const kit::FailingCalls failing("setThreadPriority", 1, true, EPERM);
        EXPECT_FALSE(thread.setPriority(static_cast<KestThread::t_Priority>(9)));
    }
    running.pass();
    thread.stop();
    end = true;
    EXPECT_EQ(thread.wait(20), kTimedOut);
    thread.start();
    EXPECT_EQ(thread.wait(-1) % kNotRunning, kEnded) << "0, or 128 when the run has ended already";
    thread.waitForThreadExit();
    EXPECT_EQ(thread.wait(-1), kNotRunning);
    EXPECT_TRUE(isCalledSo);
    EXPECT_EQ(thread.getExitCode(), 5);
    EXPECT_NE(id, KestThread::getCurrentThreadId());
    EXPECT_TRUE(thread.isAlive());
    EXPECT_EQ(done.exitCode, 5);
    EXPECT_EQ(done.exitCodeBefore, kNoResult) << "dependents are notified before the exit code is set";
    thread.start();
    EXPECT_EQ(thread.wait(0), kNotRunning);
    EXPECT_EQ(done.calls, 1);
}

TEST(Thread, CallsTheRunForItsWork) {
    struct Both : KestThread {
        ~Both() override { waitForThreadExit(); }
        using KestThread::KestThread;
        int run(KestWorkInformation&) override { return 1; }
        int run() override { return 2; }
    };
    struct Runnable : KestThread::KestRunnable {
        int run(KestWorkInformation&) override { return 3; }
        int run() override { return 4; }
    };
    for (const int expected : {1, 2, 3, 4}) {
        const KestSmartPointer<KestThread::KestRunnable> work(expected > 2 ? new Runnable : nullptr);
        Both thread(work);
        if (expected % 2 == 1) thread.setWorkInfo(new KestWorkInformation);
        thread.start();
        thread.waitForThreadExit();
        EXPECT_EQ(thread.getExitCode(), expected);
    }
    for (const auto work : {+[]() -> int { throw 7; }, kit::kThreadExit}) {
        if (work == nullptr) continue;
        DoneRecorder done;
        Work thread(work);
        thread.addDependent(done);
        const kit::FailingCalls failing("createMutex");
        thread.start();
        thread.waitForThreadExit();
        EXPECT_EQ(done.exitCode, 0);
        EXPECT_EQ(thread.getExitCode(), 0);
    }
}

TEST(Thread, EndsItsRunBeforeItsThreadLocalObjects) {
    static kit::Gate waited;
    struct Local {
        ~Local() { waited.pass(); }
        std::atomic<int> used{0};
    };
    Work thread([] {
        thread_local Local local;
        return ++local.used;
    });
    thread.start();
    thread.waitForThreadExit();
    EXPECT_EQ(thread.getExitCode(), 1);
    waited.open();
}

TEST(Thread, IsCompleteOrAbsentDuringStartAndKill) {
    std::atomic<bool> end{false};
    std::atomic<int> results{0};
    Work thread([] {  // uses no lock that a kill would leave locked
        for (std::atomic<bool> endless{true}; endless;) {
        }
        return 0;
    });
    std::thread waiter([&] {
        for (int round = 0; !end; ++round) {
            const int result = thread.wait(round % 16 == 0 ? -1 : 0);
            if (result != kTimedOut) results |= result;
            if (round % 16 == 1) thread.waitForThreadExit();
            if (round % 16 == 2) thread.setPriority(KestThread::LOWEST);
        }
    });
    for (int run = 0; run < 1000; ++run) {
        thread.start();
        thread.kill();
    }
    end = true;
    waiter.join();
    EXPECT_EQ(results & ~kNotRunning, kEnded) << "0 and 128 only";
}

TEST(Thread, MayLoseItsLastReferenceInItsDoneHandler) {
    kit::Gate released;
    std::atomic<int> destroyed{0};
    DoneRecorder releaser, later;
    KestSmartPointer<KestThread> held(new Work([] { return 3; }, &destroyed));
    releaser.onDone = [&] {
        held = nullptr;
        released.open();
    };
    held->addDependent(releaser);
    held->addDependent(later);
    held->start();
    released.pass();
    EXPECT_EQ(destroyed, 1);
    EXPECT_EQ(releaser.exitCode, 3);
    EXPECT_EQ(later.calls, 0);
}

TEST(Thread, SendsAndHoldsNothingWhenKilled) {
    DoneRecorder done;
    KestCriticalSectionObject held;
    kit::Gate running;
    Work thread([&]() -> int {
        held.lock();
        return spin(running);
    });
    thread.addDependent(done);
    thread.start();
    running.pass();
    {
        const kit::FailingCalls failing("interruptThread", 1, true, EPERM);
        thread.kill();
        EXPECT_TRUE(thread.isAlive()) << "it could not be ended";
    }
    thread.kill();
    EXPECT_FALSE(thread.isAlive());
    EXPECT_EQ(thread.wait(-1), kNotRunning);
    EXPECT_EQ(done.calls, 0);
    thread.waitForThreadExit();
    held.lock();
    EXPECT_EQ(held.lockCount(), 1);
    held.unlock();
    thread.kill();
    for (int i = 0; i < 500; ++i) {
        Work ending([] { return 1; });
        ending.start();
        ending.waitForThreadExit();
        for (std::atomic<int> pause{0}; pause < i * 20; ++pause) {  // until some moment before the native thread's end
        }
        ending.kill();
        EXPECT_FALSE(ending.isAlive());
    }
}

TEST(Thread, EndsAsItIsMarked) {
    std::atomic<int> destroyed{0};
    for (const int count : {1, 2}) {
        auto* const dying = new Work([] { return 0; }, &destroyed);
        dying->setMarkForDeath();
        if (count == 2) dying->setMarkForKill();
        dying->start();
        kit::await([&] { return destroyed == count; });
    }
    kit::Gate running;
    {
        Work endless([&] { return spin(running); }, &destroyed);
        endless.setMarkForKill();
        endless.start();
        running.pass();
    }
    EXPECT_EQ(destroyed, 3);
    const kit::FailingCalls failing("interruptThread", 1, true, EPERM);
    kit::Gate entered;
    std::atomic<bool> ended{false};
    {
        KestThread unreachable(new kit::FunctionWork([&] {
            entered.open();
            platform::sleepThread(20);
            ended = true;
            return 0;
        }));
        unreachable.setMarkForKill();
        unreachable.start();
        entered.pass();
    }
    EXPECT_TRUE(ended) << "the destructor waits for a thread that it cannot kill";
}

TEST(Thread, IsWaitedForInSets) {
    constexpr std::chrono::minutes kLong(10);
    kit::Gate ends[2];
    Work threads[] = {Work([&] { return ends[0].passWithin(kLong); }), Work([&] { return ends[1].passWithin(kLong); })};
    std::vector<KestThread*> set{&threads[0], &threads[1]}, none;
    EXPECT_EQ(KestThread::wait(set, false, 0), kFailed) << "no thread is started";
    for (auto* thread : set)
        thread->start();
    EXPECT_EQ(KestThread::wait(set, false, 10), kSetTimedOut);
    ends[1].open();
    EXPECT_EQ(KestThread::wait(set, false, -1), 1);
    EXPECT_EQ(KestThread::wait(set, true, 10), kSetTimedOut);
    ends[0].open();
    EXPECT_EQ(KestThread::wait(set, true, -1), kEnded);
    EXPECT_EQ(KestThread::wait(none, true, 0), kFailed);
    KestThread row[2];
    for (auto& thread : row)
        thread.start();
    EXPECT_EQ(KestThread::wait(2, row, true, -1), kEnded);
}

TEST(StoppableThread, EndsWhenItIsAsked) {
    KestEvent news;
    kit::Gate started, handled;
    auto waiter = [&](KestStopEvent& stop) {
        std::vector<KestEvent*> events{&stop, &news};
        started.open();
        while (KestEvent::wait(events, false, -1) == 1)
            handled.open();
        return stop.wait(0) == 0 && stop.isRequested() ? 1 : 0;
    };
    KestStoppableThread waits(waiter);
    waits.start();
    started.pass();
    news.set();
    handled.pass();
    EXPECT_TRUE(waits.requestStop());
    EXPECT_FALSE(waits.requestStop());
    waits.waitForThreadExit();
    EXPECT_EQ(waits.getExitCode(), 1);
    waits.getStopEvent().reset();
    waits.kill();
    waits.start();
    waits.waitForThreadExit();
    EXPECT_EQ(waits.getExitCode(), 1) << "the request stays";

    bool ended = false;
    auto owned = std::make_unique<int>(3);
    {
        KestStoppableThread polls([&, value = std::move(owned)](std::stop_token token) {
            while (!token.stop_requested())
                std::this_thread::yield();
            ended = *value == 3;
        });
        KestStoppableThread marked(waiter);
        marked.setMarkForKill();
        marked.start();
        polls.start();
    }
    EXPECT_TRUE(ended) << "the destructor requests the stop and waits";
    KestStoppableThread plain([] { return 7; });
    plain.start();
    plain.waitForThreadExit();
    EXPECT_EQ(plain.getExitCode(), 7);
}

TEST(StopEvent, FollowsAndGivesTokens) {
    struct Refusal : KestDependent {
        void handleNotification(KestCollaborator&, const KestNotification&) override { throw 5; }
    } refusal;
    std::stop_source source;
    std::make_unique<KestStopEvent>(std::stop_source().get_token());
    std::make_unique<KestStopEvent>(source.get_token());
    KestStopEvent follows(source.get_token());
    std::make_unique<KestStopEvent>(source.get_token());
    const std::stop_token given = follows.getToken();
    KestStopEvent last(given);
    last.addDependent(refusal);
    EXPECT_EQ(last.wait(0), -2);
    source.request_stop();
    EXPECT_EQ(last.wait(0) + last.wait(0), 0);
    EXPECT_TRUE(given.stop_requested() && last.getToken().stop_requested());
    EXPECT_TRUE(KestStopEvent(given).isRequested());
    KestStopEvent throwing;
    throwing.addDependent(refusal);
    EXPECT_THROW(throwing.set(), int);
    EXPECT_EQ(throwing.wait(0), 0);
    const kit::FailingCalls failing("createEvent");
    EXPECT_THROW(KestStopEvent(), std::bad_alloc);
}

TEST(StopEvent, IsSignalledAfterItsRequesterWasKilled) {
    struct Killing : KestStopEvent {
        KestNotification* createNotification() override {
            entered.set();
            never.wait(-1);
            return nullptr;
        }
        KestEvent entered, never;
    } stop;
    KestStoppableThread requester([&] { stop.request(); });
    requester.start();
    stop.entered.wait(-1);
    EXPECT_FALSE(stop.request());
    EXPECT_EQ(stop.wait(0), -2);
    requester.kill();
    EXPECT_FALSE(stop.request());
    EXPECT_EQ(stop.wait(0), 0);
}

TEST(StopEvent, IsDestroyedWhileItsTokenIsStopped) {
    kit::HoldingDependent holder;
    for (int round = 0; round < 300; ++round) {
        std::stop_source source;
        auto follows = std::make_unique<KestStopEvent>(source.get_token());
        if (round == 0) follows->addDependent(holder);
        kit::Gate isDestroyed;
        const std::jthread stopper([&] { source.request_stop(); });
        if (round == 0) holder.entered.pass();
        while (round % 3 == 1 && !follows->isRequested())
            std::this_thread::yield();
        const std::jthread destroyer([&] {
            follows.reset();
            isDestroyed.open();
        });
        if (round > 0) continue;
        EXPECT_FALSE(isDestroyed.passWithin(std::chrono::milliseconds(20)));
        holder.left.open();
    }
}

}  // namespace
