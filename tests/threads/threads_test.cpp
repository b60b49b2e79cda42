#include "support/threads.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "kit/failing_calls.h"
#include "kit/gate.h"

namespace KestSupport {
namespace {

using namespace std::chrono_literals;

class Work : public KestThread {
  public:
    explicit Work(std::function<int()> work, std::atomic<int>* destroyed = nullptr)
        : m_work(std::move(work)), m_destroyed(destroyed) {}
    ~Work() override {
        if (m_destroyed != nullptr) {
            ++*m_destroyed;
        } else {
            waitForThreadExit();
        }
    }

  protected:
    int run() override { return m_work(); }

  private:
    std::function<int()> m_work;
    std::atomic<int>* m_destroyed;
};

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

TEST(KestThreads, LiveFromStartToTheEndOfTheirRun) {
    kit::Gate end;
    DoneRecorder done;
    Work thread([&] {
        end.pass();
        return 5;
    });
    thread.addDependent(done);
    EXPECT_FALSE(thread.isAlive());
    EXPECT_EQ(thread.getHandle(), nullptr);
    EXPECT_EQ(thread.getExitCode(), -1);
    EXPECT_EQ(thread.wait(-1), 128);
    EXPECT_FALSE(thread.setPriority(KestThread::NORMAL));
    thread.waitForThreadExit();
    thread.start();
    EXPECT_TRUE(thread.isAlive());
    EXPECT_NE(thread.getHandle(), nullptr);
    EXPECT_EQ(thread.wait(10), 258);
    EXPECT_EQ(thread.getExitCode(), -1);
    EXPECT_TRUE(thread.setPriority(KestThread::IDLE));
    {
        const kit::FailingCalls failing("sched_setscheduler", 1, true, EPERM);
        EXPECT_FALSE(thread.setPriority(static_cast<KestThread::t_Priority>(9)));
    }
    std::thread([&] { end.open(); }).join();
    EXPECT_EQ(thread.wait(-1) % 128, 0) << "0, or 128 when the run has ended already";
    thread.waitForThreadExit();
    EXPECT_EQ(thread.wait(-1), 128);
    EXPECT_EQ(thread.getExitCode(), 5);
    EXPECT_TRUE(thread.isAlive());
    EXPECT_EQ(done.calls, 1);
    EXPECT_EQ(done.exitCode, 5);
    EXPECT_EQ(done.exitCodeBefore, -1) << "dependents hear of the end before the exit code is set";
    thread.start();
    EXPECT_EQ(thread.wait(0), 128);
    EXPECT_EQ(done.calls, 1) << "a thread runs once";
}

TEST(KestThreads, WhatTheWorkThrowsBecomesZero) {
    DoneRecorder done;
    Work thread([]() -> int { throw 7; });
    thread.addDependent(done);
    thread.start();
    thread.waitForThreadExit();
    EXPECT_EQ(done.exitCode, 0);
    EXPECT_EQ(thread.getExitCode(), 0);
}

TEST(KestThreads, TheRightRunIsCalled) {
    struct Information : KestWorkInformation {};
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
            if (information) thread.setWorkInfo(new Information);
            thread.start();
            thread.waitForThreadExit();
            EXPECT_EQ(thread.getExitCode(), (runnable ? 3 : 1) + (information ? 0 : 1));
        }
    }
}

TEST(KestThreads, HaveNames) {
    struct Derived : KestThread {};
    EXPECT_EQ(Derived().getName(), "class KestSupport::KestThread");
    EXPECT_EQ(KestThread(std::string("worker")).getName(), "worker");
    KestThread thread(KestSmartPointer<KestThread::KestRunnable>(), "both");
    thread.setName("other");
    EXPECT_EQ(thread.getName(), "other");
    EXPECT_NE(KestThread::getCurrentThreadId(), 0);
}

TEST(KestThreads, StopSuspendsAndStartResumes) {
    kit::Gate running;
    std::atomic<bool> end{false};
    Work thread([&] {
        running.open();
        while (!end)
            std::this_thread::yield();
        return 0;
    });
    thread.start();
    running.pass();
    thread.stop();
    end = true;
    EXPECT_EQ(thread.wait(20), 258);
    thread.start();
    thread.waitForThreadExit();
}

TEST(KestThreads, AKilledThreadTellsNobodyAndHoldsNothing) {
    DoneRecorder done;
    KestCriticalSectionObject held;
    kit::Gate running;
    Work thread([&]() -> int {
        held.lock();
        running.open();
        for (std::atomic<int> i{0};; ++i) {
        }
    });
    thread.addDependent(done);
    thread.start();
    running.pass();
    thread.kill();
    EXPECT_FALSE(thread.isAlive());
    EXPECT_EQ(thread.getExitCode(), -1);
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
    for (const bool alsoKill : {false, true}) {
        kit::Gate end;
        auto* const dying = new Work(
            [&] {
                end.pass();
                return 0;
            },
            &destroyed);
        dying->setMarkForDeath();
        if (alsoKill) dying->setMarkForKill();
        dying->start();
        end.open();
        kit::await([&] { return destroyed == (alsoKill ? 2 : 1); });
    }
    kit::Gate running;
    {
        auto runnable = [&]() -> int {
            running.open();
            for (std::atomic<int> i{0};; ++i) {
            }
        };
        Work endless(runnable, &destroyed);
        endless.setMarkForKill();
        endless.start();
        running.pass();
    }
    EXPECT_EQ(destroyed, 3);
}

TEST(KestThreads, AreWaitedForInSets) {
    std::array<kit::Gate, 3> ends;
    std::vector<std::unique_ptr<Work>> threads;
    std::vector<KestThread*> set;
    for (auto& end : ends) {
        threads.push_back(std::make_unique<Work>([&end] {
            end.pass();
            return 0;
        }));
        set.push_back(threads.back().get());
    }
    EXPECT_EQ(KestThread::wait(set, false, 0), -1) << "none of them has a thread yet";
    for (auto* thread : set)
        thread->start();
    EXPECT_EQ(KestThread::wait(set, false, 10), -2);
    ends[1].open();
    EXPECT_EQ(KestThread::wait(set, false, -1), 1);
    EXPECT_EQ(KestThread::wait(set, true, 10), -2);
    ends[0].open();
    ends[2].open();
    EXPECT_EQ(KestThread::wait(set, true, -1), 0);
    std::vector<KestThread*> none;
    EXPECT_EQ(KestThread::wait(none, true, 0), -1);
    std::array<KestThread, 2> row;
    for (auto& thread : row)
        thread.start();
    EXPECT_EQ(KestThread::wait(2, row.data(), true, -1), 0);
    EXPECT_EQ(KestThread::wait(0, row.data(), false, 0), -1);
}

TEST(KestThreads, AThreadThatCannotBeMadeIsAsIfNeverStarted) {
    Work thread([] { return 1; });
    {
        const kit::FailingCalls failing("pthread_create", 1, true, EAGAIN);
        thread.start();
        EXPECT_FALSE(thread.isAlive());
        EXPECT_EQ(thread.wait(-1), 128);
        thread.waitForThreadExit();
    }
    thread.start();
    thread.waitForThreadExit();
    EXPECT_EQ(thread.getExitCode(), 1);
}

}  // namespace
}  // namespace KestSupport
