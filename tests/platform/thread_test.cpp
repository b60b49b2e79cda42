// What every back end of platform/thread.h must do.
#include "platform/thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "kit/failing_calls.h"
#include "kit/gate.h"
#include "platform/critical_section.h"

using namespace KestSupport::platform;
using namespace std::chrono_literals;

namespace {

// A thread that counts until it is told to end, so that a test can see whether it stands still.
struct Counter {
    std::atomic<long> count{0};
    std::atomic<bool> end{false};
    std::atomic<bool> destroyed{false};
    WaitHandle handle = nullptr;

    static std::uint32_t run(void* argument) {
        auto& self = *static_cast<Counter*>(argument);
        struct Witness {
            std::atomic<bool>& destroyed;
            ~Witness() { destroyed = true; }
        } const witness{self.destroyed};
        while (!self.end)
            ++self.count;
        return 7;
    }
    bool start() { return createThread(&Counter::run, this, handle); }
    void awaitProgress() {
        const long seen = count;
        kit::await([&] { return count != seen; });
    }
    bool standsStill() {
        const long seen = count;
        std::this_thread::sleep_for(20ms);
        return count == seen;
    }
    ~Counter() {
        end = true;
        waitForOne(handle, kInfinite);
        closeHandle(handle);
    }
};

// A thread that runs a lambda.
struct Lambda {
    std::function<void(WaitHandle)> work;
    WaitHandle handle = nullptr;

    bool start() {
        return createThread(
            [](void* argument) -> std::uint32_t {
                const auto& self = *static_cast<Lambda*>(argument);
                self.work(self.handle);
                return 0;
            },
            this, handle);
    }
};

std::uint32_t exitCodeOf(WaitHandle thread) {
    std::uint32_t code = 0;
    EXPECT_TRUE(threadExitCode(thread, code));
    return code;
}

TEST(Thread, RunsEndsAndTellsItsExitCode) {
    Counter counter;
    ASSERT_TRUE(counter.start());
    counter.awaitProgress();
    EXPECT_EQ(waitForOne(counter.handle, 10), kWaitTimeout);
    EXPECT_EQ(exitCodeOf(counter.handle), kStillActive);
    counter.end = true;
    EXPECT_EQ(waitForOne(counter.handle, kInfinite), kWaitObject0);
    EXPECT_EQ(exitCodeOf(counter.handle), 7U);
    EXPECT_EQ(waitForOne(counter.handle, 0), kWaitObject0);
    EXPECT_TRUE(counter.destroyed);
    EXPECT_FALSE(suspendThread(counter.handle));
    EXPECT_FALSE(setThreadPriority(counter.handle, ThreadPriority::normal));
    EXPECT_TRUE(terminateThread(counter.handle, 1));
    EXPECT_EQ(exitCodeOf(counter.handle), 7U);
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
    Lambda thread{[](WaitHandle) {
        thread_local Local local;
        ++local.used;
    }};
    ASSERT_TRUE(thread.start());
    waitForOne(thread.handle, kInfinite);
    EXPECT_TRUE(destroyed);
    closeHandle(thread.handle);
}

TEST(Thread, SuspensionsCount) {
    Counter counter;
    ASSERT_TRUE(counter.start());
    counter.awaitProgress();
    EXPECT_FALSE(resumeThread(counter.handle));
    EXPECT_TRUE(suspendThread(counter.handle));
    EXPECT_TRUE(counter.standsStill());
    EXPECT_TRUE(suspendThread(counter.handle));
    EXPECT_TRUE(resumeThread(counter.handle));
    EXPECT_TRUE(counter.standsStill());
    EXPECT_EQ(waitForOne(counter.handle, 5), kWaitTimeout);
    EXPECT_TRUE(resumeThread(counter.handle));
    counter.awaitProgress();
    EXPECT_FALSE(resumeThread(counter.handle));
}

TEST(Thread, AThreadMaySuspendTerminateAndCloseItself) {
    std::atomic<bool> resumed{false}, after{false};
    kit::Gate ready;
    Lambda thread{[&](WaitHandle self) {
        ready.open();
        suspendThread(self);
        resumed = true;
        terminateThread(self, 9);
        after = true;
    }};
    ASSERT_TRUE(thread.start());
    ready.pass();
    EXPECT_EQ(waitForOne(thread.handle, 20), kWaitTimeout);
    EXPECT_FALSE(resumed);
    kit::await([&] { return resumeThread(thread.handle); });
    EXPECT_EQ(waitForOne(thread.handle, kInfinite), kWaitObject0);
    EXPECT_EQ(exitCodeOf(thread.handle), 9U);
    EXPECT_TRUE(resumed && !after);
    closeHandle(thread.handle);

    kit::Gate closed;
    Lambda closing{[&](WaitHandle self) {
        closeHandle(self);
        closed.open();
    }};
    ASSERT_TRUE(closing.start());
    closed.pass();
}

// Where a thread may be when it is terminated.
struct Place {
    const char* name;
    void (*stay)(WaitHandle object, CriticalSection& section);
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
     }},
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
        Lambda thread{[&](WaitHandle) {
            const std::unique_ptr<std::atomic<bool>, void (*)(std::atomic<bool>*)> witness(
                &destroyed, [](std::atomic<bool>* flag) { *flag = true; });
            waitForOne(held.get(), kInfinite);
            ready.open();
            place.stay(event.get(), *section);
        }};
        ASSERT_TRUE(thread.start());
        ready.pass();
        std::this_thread::sleep_for(5ms);
        EXPECT_TRUE(!suspended || suspendThread(thread.handle));
        EXPECT_TRUE(terminateThread(thread.handle, 42));
        EXPECT_EQ(waitForOne(thread.handle, 0), kWaitObject0);
        EXPECT_EQ(exitCodeOf(thread.handle), 42U);
        EXPECT_FALSE(destroyed) << "nothing is unwound";
        EXPECT_EQ(waitForOne(held.get(), kInfinite), kWaitAbandoned);
        setEvent(event.get());
        EXPECT_EQ(waitForOne(event.get(), 0), kWaitObject0) << "the ended thread still waited";
        closeHandle(thread.handle);
        leaveCriticalSection(*section);
    }
}

TEST(Thread, WaitsAmongOthers) {
    Counter slow, quick;
    ASSERT_TRUE(slow.start() && quick.start());
    const std::vector<WaitHandle> handles{slow.handle, quick.handle};
    EXPECT_EQ(waitForMany(handles, false, 10), kWaitTimeout);
    quick.end = true;
    EXPECT_EQ(waitForMany(handles, false, kInfinite), 1U);
    EXPECT_EQ(waitForMany(handles, true, 10), kWaitTimeout);
    slow.end = true;
    EXPECT_EQ(waitForMany(handles, true, kInfinite), kWaitObject0);
}

TEST(Thread, IdsAreTheSystemsAndNeverZero) {
    const std::uint32_t mine = currentThreadId();
    std::uint32_t other = 0;
    std::thread([&] { other = currentThreadId(); }).join();
    EXPECT_NE(mine, 0U);
    EXPECT_NE(other, 0U);
    EXPECT_NE(mine, other);
    EXPECT_EQ(mine, currentThreadId());
}

TEST(Thread, PrioritiesAreTakenOrRefusedBySystem) {
    Counter counter;
    ASSERT_TRUE(counter.start());
    EXPECT_TRUE(setThreadPriority(counter.handle, ThreadPriority::lowest));
    EXPECT_TRUE(setThreadPriority(counter.handle, ThreadPriority::idle));
    const kit::FailingCalls failing("setpriority", 1, true, EPERM);
    EXPECT_FALSE(setThreadPriority(counter.handle, ThreadPriority::timeCritical));
}

TEST(Thread, WithoutAThreadThereIsNoHandle) {
    WaitHandle handle = nullptr;
    const kit::FailingCalls failing("pthread_create", 1, true, EAGAIN);
    EXPECT_FALSE(createThread(&Counter::run, nullptr, handle));
    EXPECT_EQ(handle, nullptr);
    EXPECT_FALSE(suspendThread(nullptr) || resumeThread(nullptr) || terminateThread(nullptr, 0));
}

}  // namespace
