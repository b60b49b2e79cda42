// What every back end of platform/thread.h must do.
#include "platform/thread.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <limits>

#include "kit/environment_guard.h"
#include "kit/failing_calls.h"
#include "kit/gate.h"
#include "kit/system.h"
#include "platform/critical_section.h"
#include "platform/lambda_thread.h"
#include "support/date_time.h"
#include "support/exceptions.h"

using namespace KestSupport::platform;
using namespace std::chrono_literals;

namespace {

TEST(Thread, CountsSuspensions) {
    std::atomic<long> count{0};
    std::atomic<bool> end{false};
    const Lambda thread([&](WaitHandle) {
        while (!end)
            ++count;
    });
    const WaitHandle handle = thread.handle;
    const auto awaitProgress = [&] { kit::await([&, seen = count.load()] { return count != seen; }); };
    const auto expectStopped = [&] {
        const long seen = count;
        std::this_thread::sleep_for(20ms);
        EXPECT_EQ(count, seen);
    };
    awaitProgress();
    EXPECT_FALSE(resumeThread(handle));
    EXPECT_TRUE(suspendThread(handle));
    expectStopped();
    EXPECT_TRUE(suspendThread(handle));
    EXPECT_TRUE(resumeThread(handle));
    expectStopped();
    EXPECT_EQ(waitForOne(handle, 5), kWaitTimeout);
    EXPECT_TRUE(resumeThread(handle));
    awaitProgress();
    EXPECT_FALSE(resumeThread(handle));
    const Lambda other([&](WaitHandle) { awaitProgress(); });
    while (suspendThread(other.handle)) {
    }
    EXPECT_TRUE(terminateThread(other.handle, 2)) << "as often suspended as possible";
    EXPECT_TRUE(setThreadPriority(handle, ThreadPriority::idle)) << "which any user may set";
    {
        const kit::FailingCalls failing("setThreadPriority", 1, true, EPERM);
        EXPECT_FALSE(setThreadPriority(handle, ThreadPriority::timeCritical));
    }
    EXPECT_EQ(threadExitCode(handle), kStillActive);
    end = true;
    EXPECT_EQ(waitForOne(handle, kInfinite), kWaitObject0);
    EXPECT_EQ(waitForOne(handle, 0), kWaitObject0);
    EXPECT_TRUE(terminateThread(handle, 1));
    EXPECT_EQ(threadExitCode(handle), kExitCode);
    EXPECT_FALSE(setThreadPriority(handle, ThreadPriority::normal));
    EXPECT_FALSE(suspendThread(handle));
}

TEST(Thread, EndsAfterItsThreadLocalObjects) {
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

TEST(Thread, SuspendsAndTerminatesItself) {
    std::atomic<int> steps{0};
    const Lambda thread([&](WaitHandle self) {
        ++steps;
        suspendThread(self);
        ++steps;
        terminateThread(self, 9);
        ++steps;
    });
    kit::await([&] { return steps == 1; });
    EXPECT_EQ(waitForOne(thread.handle, 20), kWaitTimeout);
    EXPECT_EQ(steps, 1);
    kit::await([&] { return resumeThread(thread.handle); });
    EXPECT_EQ(waitForOne(thread.handle, kInfinite), kWaitObject0);
    EXPECT_EQ(threadExitCode(thread.handle), 9U);
    EXPECT_EQ(steps, 2);
}

// What a thread does when it is terminated.
struct Activity {
    const char* name;
    void (*run)(WaitHandle object, CriticalSection& section);
    bool holdsRuntimeLocks = false;  // so the termination has to be tried several times
};
// The counters are for the sanitizers. ThreadSanitizer delivers signals at atomic operations only. The allocator of
// AddressSanitizer is slow, so a thread that only allocates is hardly ever outside it.
const Activity kActivities[] = {
    {"computing",
     [](WaitHandle, CriticalSection&) {
         for (std::atomic<int> i{0};; ++i) {
         }
     }},
    {"waiting for an event", [](WaitHandle event, CriticalSection&) { waitForOne(event, kInfinite); }},
    {"waiting with a time-out", [](WaitHandle event, CriticalSection&) { waitForOne(event, 1'000'000); }},
    {"sleeping", [](WaitHandle, CriticalSection&) { sleepThread(1'000'000); }},
    {"sleeping outside the library", [](WaitHandle, CriticalSection&) { std::this_thread::sleep_for(1h); }},
    {"blocked on a critical section", [](WaitHandle, CriticalSection& section) { enterCriticalSection(section); }},
    {"allocating",
     [](WaitHandle, CriticalSection&) {
         for (std::atomic<int> count{0};; ++count) {
             if (count % 200 == 0) delete[] new char[5000];
         }
     },
     true},
    {"locking stderr",
     [](WaitHandle, CriticalSection&) {
         for (std::atomic<int> count{0};; ++count) {
             if (count % 2000 == 0) kit::lockErrorStream();
             if (count % 2000 == 1000) kit::unlockErrorStream();
         }
     },
     true},
};

// While the machine is busy, one call may give up before it finds a thread outside the runtime that is mostly inside.
template <typename Call>
bool reaches(bool isMostlyInRuntime, Call&& call) {
    bool reached = call();
    while (!reached && isMostlyInRuntime)
        reached = call();
    return reached;
}

void terminateDuring(const Activity& activity, bool suspended) {
    const OwnedHandle held(createMutex()), event(createEvent(false, false));
    const std::shared_ptr<CriticalSection> section(createCriticalSection(), &destroyCriticalSection);
    enterCriticalSection(*section);
    kit::Gate ready;
    std::atomic<bool> unwound{false};
    const kit::AllSignalsBlocked blocked;
    const kit::FailingCalls counted("interruptThread", std::numeric_limits<int>::max());
    const Lambda thread([&](WaitHandle) {
        const std::shared_ptr<void> witness(nullptr, [&](void*) { unwound = true; });
        waitForOne(held.get(), kInfinite);
        ready.open();
        activity.run(event.get(), *section);
    });
    ready.pass();
    std::this_thread::sleep_for(5ms);
    EXPECT_TRUE(!suspended || reaches(activity.holdsRuntimeLocks, [&] { return suspendThread(thread.handle); }));
    EXPECT_TRUE(reaches(activity.holdsRuntimeLocks, [&] { return terminateThread(thread.handle, 42); }));
    const int attempts = kit::FailingCalls::seen();
    EXPECT_LT(activity.holdsRuntimeLocks ? 0 : attempts, 1000) << "only force ended the thread";
    EXPECT_TRUE(kit::errorStreamIsFree());
    EXPECT_EQ(waitForOne(thread.handle, 0), kWaitObject0);
    EXPECT_EQ(threadExitCode(thread.handle), 42U);
    EXPECT_FALSE(unwound);
    EXPECT_EQ(waitForOne(held.get(), kInfinite), kWaitAbandoned);
    setEvent(event.get());
    EXPECT_EQ(waitForOne(event.get(), 0), kWaitObject0) << "the ended thread still waits";
    leaveCriticalSection(*section);
}

TEST(Thread, IsTerminatedDuringAnyActivity) {
    for (const Activity& activity : kActivities) {
        for (const bool suspended : {false, true}) {
            SCOPED_TRACE(std::string(activity.name) + (suspended ? ", suspended" : ""));
            terminateDuring(activity, suspended);
        }
    }
}

TEST(Thread, LeavesTextsAndDatesUnlocked) {
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
        EXPECT_TRUE(reaches(true, [&] { return terminateThread(thread.handle, 1); }));
        use();
    }
}

TEST(Thread, KeepsMutexWhenOlderThreadEnds) {
    struct Holder {
        OwnedHandle mutex{createMutex()};
        kit::Gate holds, end;
        Lambda thread{[this](WaitHandle) {
            waitForOne(mutex.get(), kInfinite);
            holds.open();
            end.pass();
        }};
    };
    std::array<Holder, 260> holders;  // more than the table of threads has buckets
    for (Holder& holder : holders)
        holder.holds.pass();
    for (Holder& holder : holders) {
        EXPECT_EQ(waitForOne(holder.mutex.get(), 0), kWaitTimeout);
        holder.end.open();
        waitForOne(holder.thread.handle, kInfinite);
    }
}

}  // namespace
