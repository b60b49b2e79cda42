// What every back end of platform/thread.h must do.
#include "platform/thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
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
    destroyed = false;
    struct Local {
        ~Local() {
            std::this_thread::sleep_for(10ms);
            destroyed = true;
        }
    };
    WaitHandle handle = nullptr;
    ASSERT_TRUE(createThread(
        [](void*) -> std::uint32_t {
            thread_local const Local local;
            static_cast<void>(local);
            return 0;
        },
        nullptr, handle));
    waitForOne(handle, kInfinite);
    EXPECT_TRUE(destroyed);
    closeHandle(handle);
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

TEST(Thread, AThreadMaySuspendItself) {
    struct Self {
        WaitHandle handle = nullptr;
        kit::Gate ready;
        std::atomic<bool> resumed{false};
    } self;
    ASSERT_TRUE(createThread(
        [](void* argument) -> std::uint32_t {
            auto& me = *static_cast<Self*>(argument);
            me.ready.open();
            suspendThread(me.handle);
            me.resumed = true;
            return 0;
        },
        &self, self.handle));
    self.ready.pass();
    EXPECT_EQ(waitForOne(self.handle, 20), kWaitTimeout);
    EXPECT_FALSE(self.resumed);
    kit::await([&] { return resumeThread(self.handle); });
    EXPECT_EQ(waitForOne(self.handle, kInfinite), kWaitObject0);
    closeHandle(self.handle);
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
    // The count is for ThreadSanitizer, which delivers signals at atomic operations but not in the allocator.
    {"allocating",
     [](WaitHandle, CriticalSection&) {
         for (std::atomic<int> count{0};; ++count)
             delete[] new char[5000];
     }},
};

TEST(Thread, TerminationTakesAThreadWhereverItIs) {
    for (const Place& place : kPlaces) {
        for (const bool suspended : {false, true}) {
            SCOPED_TRACE(std::string(place.name) + (suspended ? ", suspended" : ""));
            struct Setup {
                const Place* place;
                WaitHandle held = createMutex();
                WaitHandle event = createEvent(false, false);
                CriticalSection* section = createCriticalSection();
                kit::Gate ready;
                std::atomic<bool> destroyed{false};
            } setup{&place, createMutex(), createEvent(false, false), createCriticalSection(), {}, {false}};
            enterCriticalSection(*setup.section);
            WaitHandle handle = nullptr;
            ASSERT_TRUE(createThread(
                [](void* argument) -> std::uint32_t {
                    auto& s = *static_cast<Setup*>(argument);
                    struct Witness {
                        std::atomic<bool>& destroyed;
                        ~Witness() { destroyed = true; }
                    } const witness{s.destroyed};
                    waitForOne(s.held, kInfinite);
                    s.ready.open();
                    s.place->stay(s.event, *s.section);
                    return 0;
                },
                &setup, handle));
            setup.ready.pass();
            std::this_thread::sleep_for(5ms);
            EXPECT_TRUE(!suspended || suspendThread(handle));
            EXPECT_TRUE(terminateThread(handle, 42));
            EXPECT_EQ(waitForOne(handle, 0), kWaitObject0);
            EXPECT_EQ(exitCodeOf(handle), 42U);
            EXPECT_FALSE(setup.destroyed) << "nothing is unwound";
            EXPECT_EQ(waitForOne(setup.held, kInfinite), kWaitAbandoned);
            setEvent(setup.event);
            EXPECT_EQ(waitForOne(setup.event, 0), kWaitObject0) << "the ended thread still waited";
            closeHandle(handle);
            closeHandle(setup.held);
            closeHandle(setup.event);
            leaveCriticalSection(*setup.section);
            destroyCriticalSection(setup.section);
        }
    }
}

TEST(Thread, AThreadMayTerminateItself) {
    struct Self {
        WaitHandle handle = nullptr;
        std::atomic<bool> after{false};
    } self;
    ASSERT_TRUE(createThread(
        [](void* argument) -> std::uint32_t {
            auto& me = *static_cast<Self*>(argument);
            terminateThread(me.handle, 9);
            me.after = true;
            return 0;
        },
        &self, self.handle));
    EXPECT_EQ(waitForOne(self.handle, kInfinite), kWaitObject0);
    EXPECT_EQ(exitCodeOf(self.handle), 9U);
    EXPECT_FALSE(self.after);
    closeHandle(self.handle);
}

TEST(Thread, WaitsAmongOthersAndMayCloseItsOwnHandle) {
    Counter slow, quick;
    ASSERT_TRUE(slow.start() && quick.start());
    const std::vector<WaitHandle> handles{slow.handle, quick.handle};
    EXPECT_EQ(waitForMany(handles, false, 10), kWaitTimeout);
    quick.end = true;
    EXPECT_EQ(waitForMany(handles, false, kInfinite), 1U);
    EXPECT_EQ(waitForMany(handles, true, 10), kWaitTimeout);
    slow.end = true;
    EXPECT_EQ(waitForMany(handles, true, kInfinite), kWaitObject0);

    struct Own {
        WaitHandle handle = nullptr;
        kit::Gate closed;
    } own;
    ASSERT_TRUE(createThread(
        [](void* argument) -> std::uint32_t {
            auto& me = *static_cast<Own*>(argument);
            closeHandle(me.handle);
            me.closed.open();
            return 0;
        },
        &own, own.handle));
    own.closed.pass();
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
