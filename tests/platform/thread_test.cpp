// What every back end of platform/thread.h must do.
#include "platform/thread.h"

#include <sched.h>
#include <signal.h>
#include <sys/resource.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <functional>
#include <iterator>
#include <limits>

#include "kit/environment_guard.h"
#include "kit/failing_calls.h"
#include "kit/gate.h"
#include "platform/critical_section.h"
#include "support/date_time.h"
#include "support/exceptions.h"

using namespace KestSupport::platform;
using namespace std::chrono_literals;

namespace {

// A thread that runs a lambda.
struct Lambda {
    explicit Lambda(std::function<void(WaitHandle)> given) : work(std::move(given)) {
        createThread(
            [](void* argument) -> std::uint32_t {
                const auto& self = *static_cast<Lambda*>(argument);
                self.work(self.handle);
                return 7;
            },
            this, handle);
    }
    ~Lambda() { closeHandle(handle); }
    std::uint32_t exitCode() const { return threadExitCode(handle).value(); }

    const std::function<void(WaitHandle)> work;
    WaitHandle handle = nullptr;
};

TEST(Thread, RunsIsSuspendedAsOftenAsItIsResumedAndEnds) {
    std::atomic<long> count{0};
    std::atomic<bool> end{false};
    const Lambda thread([&](WaitHandle) {
        while (!end)
            ++count;
    });
    const auto awaitProgress = [&] { kit::await([&, seen = count.load()] { return count != seen; }); };
    const auto standsStill = [&] {
        const long seen = count;
        std::this_thread::sleep_for(20ms);
        return count == seen;
    };
    awaitProgress();
    EXPECT_FALSE(resumeThread(thread.handle));
    EXPECT_TRUE(suspendThread(thread.handle) && standsStill());
    EXPECT_TRUE(suspendThread(thread.handle) && resumeThread(thread.handle) && standsStill());
    EXPECT_EQ(waitForOne(thread.handle, 5), kWaitTimeout);
    EXPECT_TRUE(resumeThread(thread.handle));
    awaitProgress();
    EXPECT_FALSE(resumeThread(thread.handle));
    EXPECT_TRUE(setThreadPriority(thread.handle, ThreadPriority::lowest));
    {
        const kit::FailingCalls failing("setThreadPriority", 1, true, EPERM);
        EXPECT_FALSE(setThreadPriority(thread.handle, ThreadPriority::timeCritical));
    }
    EXPECT_EQ(thread.exitCode(), kStillActive);
    end = true;
    for (const std::uint32_t timeout : {kInfinite, 0U})
        EXPECT_EQ(waitForOne(thread.handle, timeout), kWaitObject0);
    EXPECT_FALSE(suspendThread(thread.handle) || setThreadPriority(thread.handle, ThreadPriority::normal));
    EXPECT_TRUE(terminateThread(thread.handle, 1));
    EXPECT_EQ(thread.exitCode(), 7U);
    EXPECT_FALSE(suspendThread(nullptr) || resumeThread(nullptr) || terminateThread(nullptr, 0));
}

TEST(Thread, EndsOnlyAfterItsThreadLocalObjects) {
    static std::atomic<bool> destroyed;
    struct Local {
        ~Local() {
            std::this_thread::sleep_for(10ms);
            destroyed = true;
        }
        std::atomic<int> used{0};
    };
    const Lambda thread([](WaitHandle) {
        thread_local Local local;
        ++local.used;
    });
    waitForOne(thread.handle, kInfinite);
    EXPECT_TRUE(destroyed);
}

TEST(Thread, AThreadMaySuspendAndTerminateItself) {
    std::atomic<bool> resumed{false}, after{false};
    kit::Gate ready;
    const Lambda thread([&](WaitHandle self) {
        ready.open();
        suspendThread(self);
        resumed = true;
        terminateThread(self, 9);
        after = true;
    });
    ready.pass();
    EXPECT_EQ(waitForOne(thread.handle, 20), kWaitTimeout);
    EXPECT_FALSE(resumed);
    kit::await([&] { return resumeThread(thread.handle); });
    EXPECT_EQ(waitForOne(thread.handle, kInfinite), kWaitObject0);
    EXPECT_EQ(thread.exitCode(), 9U);
    EXPECT_TRUE(resumed && !after);
}

// Where a thread may be when it is terminated.
struct Place {
    const char* name;
    void (*stay)(WaitHandle object, CriticalSection& section);
    bool runtime = false;  // it is spared now and then because it holds a lock of the runtime
};
const Place kPlaces[] = {
    {"computing",
     [](WaitHandle, CriticalSection&) {
         for (std::atomic<int> i{0};; ++i) {
         }
     }},
    {"waiting for an event", [](WaitHandle event, CriticalSection&) { waitForOne(event, kInfinite); }},
    {"waiting with a time-out", [](WaitHandle event, CriticalSection&) { waitForOne(event, 1'000'000); }},
    {"sleeping", [](WaitHandle, CriticalSection&) { sleepThread(1'000'000); }},
    {"blocked on a critical section", [](WaitHandle, CriticalSection& section) { enterCriticalSection(section); }},
    // The counting is for the sanitizers: one delivers signals at atomic operations only, the other's allocator is
    // slow, and where a thread hardly ever leaves it, termination finds no place to take the thread.
    {"allocating now and then",
     [](WaitHandle, CriticalSection&) {
         for (std::atomic<int> count{0};; ++count) {
             if (count % 200 == 0) delete[] new char[5000];
         }
     },
     true},
    {"holding the lock of stderr now and then",
     [](WaitHandle, CriticalSection&) {
         for (std::atomic<int> count{0};; ++count) {
             if (count % 2000 == 0) flockfile(stderr);
             if (count % 2000 == 1000) funlockfile(stderr);
         }
     },
     true},
};

// The calling thread takes no signals during its lifetime; threads that it makes inherit that.
struct AllSignalsBlocked {
    AllSignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before);
    }
    ~AllSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }
    sigset_t before{};
};

TEST(Thread, TerminationTakesAThreadWhereverItIs) {
    for (int run = 0; run < 2 * static_cast<int>(std::size(kPlaces)); ++run) {
        const Place& place = kPlaces[run / 2];
        const bool suspended = run % 2 == 1;
        SCOPED_TRACE(std::string(place.name) + (suspended ? ", suspended" : ""));
        const OwnedHandle held(createMutex()), event(createEvent(false, false));
        const std::unique_ptr<CriticalSection, void (*)(CriticalSection*)> section(
            createCriticalSection(), [](CriticalSection* used) { destroyCriticalSection(used); });
        enterCriticalSection(*section);
        kit::Gate ready;
        std::atomic<bool> destroyed{false};
        const AllSignalsBlocked blocked;
        const kit::FailingCalls counted("interruptThread", std::numeric_limits<int>::max());
        const Lambda thread([&](WaitHandle) {
            const std::unique_ptr<std::atomic<bool>, void (*)(std::atomic<bool>*)> witness(
                &destroyed, [](std::atomic<bool>* flag) { *flag = true; });
            waitForOne(held.get(), kInfinite);
            ready.open();
            place.stay(event.get(), *section);
        });
        ready.pass();
        std::this_thread::sleep_for(5ms);
        EXPECT_TRUE(!suspended || suspendThread(thread.handle));
        EXPECT_TRUE(terminateThread(thread.handle, 42));
        EXPECT_TRUE(place.runtime || kit::FailingCalls::seen() < 1000) << "taken only because the time was over";
        EXPECT_EQ(ftrylockfile(stderr), 0);
        funlockfile(stderr);
        EXPECT_EQ(waitForOne(thread.handle, 0), kWaitObject0);
        EXPECT_EQ(thread.exitCode(), 42U);
        EXPECT_FALSE(destroyed) << "nothing is unwound";
        EXPECT_EQ(waitForOne(held.get(), kInfinite), kWaitAbandoned);
        setEvent(event.get());
        EXPECT_EQ(waitForOne(event.get(), 0), kWaitObject0) << "the ended thread still waited";
        leaveCriticalSection(*section);
    }
}

TEST(Thread, LeavesNothingLockedThatTextsAndDatesNeed) {
    kit::EnvironmentGuard environment;
    environment.setLocale("ja_JP.eucJP");
    const auto use = [] {
        if (KestSupport::KestException("text", 1).getText() == "text") KestSupport::KestDateTime().toString();
    };
    for (int i = 0; i < 200; ++i) {
        kit::Gate ready;
        const Lambda thread([&](WaitHandle) {
            for (ready.open();;)
                use();
        });
        ready.pass();
        std::this_thread::sleep_for(std::chrono::microseconds(i * 5));
        EXPECT_TRUE(terminateThread(thread.handle, 1));
        use();
    }
}

TEST(Thread, StartsWithTheSchedulingOfTheProcessWhateverItsCreatorHas) {
    const auto scheduling = [] { return std::pair(sched_getscheduler(0), getpriority(PRIO_PROCESS, 0)); };
    const auto process = scheduling();
    std::pair<int, int> creator, created;
    bool mayReset = false;
    const Lambda thread([&](WaitHandle self) {
        setThreadPriority(self, ThreadPriority::idle);
        creator = scheduling();
        const Lambda inner([&](WaitHandle) { created = scheduling(); });
        waitForOne(inner.handle, kInfinite);
        mayReset = setThreadPriority(self, ThreadPriority::normal);
    });
    waitForOne(thread.handle, kInfinite);
    EXPECT_NE(creator, process);
    EXPECT_EQ(created, mayReset ? process : creator);
}

TEST(Thread, KeepsItsMutexWhenAnOlderThreadEnds) {
    // More threads than the table of threads has buckets.
    struct Holder {
        OwnedHandle mutex{createMutex()};
        kit::Gate holds, end;
        Lambda thread{[this](WaitHandle) {
            waitForOne(mutex.get(), kInfinite);
            holds.open();
            end.pass();
        }};
    };
    std::array<Holder, 260> holders;
    for (Holder& holder : holders)
        holder.holds.pass();
    for (std::size_t i = 0; i < holders.size(); ++i) {
        EXPECT_EQ(waitForOne(holders[i].mutex.get(), 0), kWaitTimeout) << i;
        if (i >= 4) continue;
        holders[i].end.open();
        waitForOne(holders[i].thread.handle, kInfinite);
    }
    for (Holder& holder : holders) {
        holder.end.open();
        waitForOne(holder.thread.handle, kInfinite);
    }
}

}  // namespace
