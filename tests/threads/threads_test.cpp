#include "support/threads.h"

#include <pthread.h>

#include <fstream>
#include <functional>

#include "kit/failing_calls.h"
#include "kit/gate.h"

namespace KestSupport {
namespace {

class Work : public KestThread {
  public:
    explicit Work(std::function<int()> work, std::atomic<int>* destroyed = nullptr)
        : m_work(std::move(work)), m_destroyed(destroyed) {}
    ~Work() override { m_destroyed != nullptr ? ++*m_destroyed : (waitForThreadExit(), 0); }

  protected:
    int run() override { return m_work(); }

  private:
    std::function<int()> m_work;
    std::atomic<int>* m_destroyed;
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
    }
    std::atomic<int> calls{0}, exitCode{-2}, exitCodeBefore{-2};
};

TEST(KestThreads, LiveFromStartToTheEndOfTheirRunAndStandStillWhenStopped) {
    std::atomic<bool> running{false}, end{false};
    std::atomic<int> ids{KestThread::getCurrentThreadId()};
    DoneRecorder done;
    Work thread([&] {
        ids -= KestThread::getCurrentThreadId();
        for (running = true; !end;)
            std::this_thread::yield();
        return 5;
    });
    EXPECT_EQ(thread.getName(), "class KestSupport::KestThread");
    thread.addDependent(done);
    for (const char* const call : {"createThread", "createEvent"}) {
        const kit::FailingCalls failing(call, 1, true, EAGAIN);
        thread.start();
        EXPECT_FALSE(thread.isAlive());
    }
    EXPECT_EQ(thread.getHandle(), nullptr);
    EXPECT_EQ(thread.getExitCode(), -1);
    EXPECT_EQ(thread.wait(-1), 128);
    EXPECT_FALSE(thread.setPriority(KestThread::NORMAL));
    thread.waitForThreadExit();
    thread.start();
    EXPECT_TRUE(thread.isAlive());
    EXPECT_EQ(thread.getExitCode(), -1);
    EXPECT_TRUE(thread.setPriority(KestThread::IDLE));
    {
        const kit::FailingCalls failing("setThreadPriority", 1, true, EPERM);
        EXPECT_FALSE(thread.setPriority(static_cast<KestThread::t_Priority>(9)));
    }
    kit::await([&] { return running.load(); });
    thread.stop();
    end = true;
    EXPECT_EQ(thread.wait(20), 258);
    thread.start();
    EXPECT_EQ(thread.wait(-1) % 128, 0) << "0, or 128 when the run has ended already";
    thread.waitForThreadExit();
    EXPECT_EQ(thread.wait(-1), 128);
    EXPECT_EQ(thread.getExitCode(), 5);
    EXPECT_NE(ids, 0) << "each thread has an id of its own";
    EXPECT_TRUE(thread.isAlive());
    EXPECT_EQ(done.exitCode, 5);
    EXPECT_EQ(done.exitCodeBefore, -1) << "dependents hear of the end before the exit code is set";
    thread.start();
    EXPECT_EQ(thread.wait(0), 128);
    EXPECT_EQ(done.calls, 1) << "a thread runs once";
}

TEST(KestThreads, TheRightRunIsCalled) {
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
    for (const bool runnable : {false, true}) {
        for (const bool information : {false, true}) {
            const KestSmartPointer<KestThread::KestRunnable> work(runnable ? new Runnable : nullptr);
            Both thread(work);
            if (information) thread.setWorkInfo(new KestWorkInformation);
            thread.start();
            thread.waitForThreadExit();
            EXPECT_EQ(thread.getExitCode(), (runnable ? 3 : 1) + (information ? 0 : 1));
        }
    }
    const std::function<int()> withoutResult[] = {[]() -> int { throw 7; }, []() -> int { pthread_exit(nullptr); }};
    for (const auto& work : withoutResult) {
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

TEST(KestThreads, AWaitDuringStartAndKillSeesACompleteThreadOrNone) {
    struct Endless : KestThread::KestRunnable {
        int run() override {
            for (std::atomic<int> i{0};; ++i) {
            }
        }
    };
    std::atomic<bool> end{false};
    std::atomic<int> results{0};
    KestThread thread(new Endless);
    std::thread waiter([&] {
        for (int round = 0; !end; ++round) {
            const int result = thread.wait(round % 16 == 0 ? -1 : 0);
            results |= result == 258 ? 0 : result;
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
    EXPECT_EQ(results & ~128, 0) << "0 and 128 only";
}

TEST(KestThreads, ItsLastReferenceMayEndInItsDoneHandler) {
    struct Releaser : DoneRecorder {
        void handleNotification(KestCollaborator& sender, const KestNotification& notification) override {
            DoneRecorder::handleNotification(sender, notification);
            held = nullptr;
            released.open();
        }
        KestSmartPointer<KestThread> held;
        kit::Gate released;
    } releaser;
    std::atomic<int> destroyed{0};
    DoneRecorder later;
    releaser.held = new Work([] { return 3; }, &destroyed);
    for (KestDependent* const dependent : {static_cast<KestDependent*>(&releaser), static_cast<KestDependent*>(&later)})
        releaser.held->addDependent(*dependent);
    releaser.held->start();
    releaser.released.pass();
    EXPECT_EQ(destroyed, 1);
    EXPECT_EQ(releaser.exitCode, 3);
    EXPECT_EQ(later.calls, 0);
}

TEST(KestThreads, ADestroyedThreadReturnsItsStack) {
    const auto run = [] {
        KestThread thread;
        thread.start();
    };
    const auto pages = [] {
        long size = 0;
        std::ifstream("/proc/self/statm") >> size;
        return size;
    };
    run();
    const long before = pages();
    for (int i = 0; i < 40; ++i)
        run();
    EXPECT_LT(pages() - before, 20 * 2048L) << "the stacks of 20 threads";
}

TEST(KestThreads, AKilledThreadTellsNobodyAndHoldsNothing) {
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
    EXPECT_EQ(thread.wait(-1), 128);
    EXPECT_EQ(done.calls, 0);
    thread.waitForThreadExit();
    held.lock();
    EXPECT_EQ(held.lockCount(), 1);
    held.unlock();
    thread.kill();
}

TEST(KestThreads, MarksDecideWhatTheEndAndTheDestructorDo) {
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
    struct Slow : KestThread::KestRunnable {
        int run() override {
            entered.open();
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            ended = true;
            return 0;
        }
        kit::Gate entered;
        std::atomic<bool> ended{false};
    };
    const KestSmartPointer<Slow> slow(new Slow);
    {
        KestThread unreachable(slow.get());
        unreachable.setMarkForKill();
        unreachable.start();
        slow->entered.pass();
    }
    EXPECT_TRUE(slow->ended) << "the destructor waits for what it cannot kill";
}

TEST(KestThreads, AreWaitedForInSets) {
    kit::Gate ends[2];
    Work threads[] = {Work([&] { return ends[0].pass(), 0; }), Work([&] { return ends[1].pass(), 0; })};
    std::vector<KestThread*> set{&threads[0], &threads[1]}, none;
    EXPECT_EQ(KestThread::wait(set, false, 0), -1) << "none of them has a thread yet";
    for (auto* thread : set)
        thread->start();
    EXPECT_EQ(KestThread::wait(set, false, 10), -2);
    ends[1].open();
    EXPECT_EQ(KestThread::wait(set, false, -1), 1);
    EXPECT_EQ(KestThread::wait(set, true, 10), -2);
    ends[0].open();
    EXPECT_EQ(KestThread::wait(set, true, -1), 0);
    EXPECT_EQ(KestThread::wait(none, true, 0), -1);
    KestThread row[2];
    for (auto& thread : row)
        thread.start();
    EXPECT_EQ(KestThread::wait(2, row, true, -1), 0);
}

}  // namespace
}  // namespace KestSupport
