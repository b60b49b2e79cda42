#include "platform/console.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <mutex>
#include <semaphore>

#include "kit/child_process.h"
#include "kit/failing_calls.h"

namespace {

using kit::ChildProcess;
using kit::ChildRole;
using namespace KestSupport::platform;

std::mutex g_lock;  // guards g_heard
std::string g_heard;
std::counting_semaphore<> g_called(0);
std::counting_semaphore<> g_mayReturn(0);
std::atomic<bool> g_returned{false};
std::thread::id g_handlerThread;

void hear(char who, std::uint32_t event) {
    {
        const std::lock_guard guard(g_lock);
        g_heard += who;
        g_heard += static_cast<char>('0' + event);
        g_handlerThread = std::this_thread::get_id();
    }
    g_called.release();
}

bool takesAll(std::uint32_t event) {
    hear('a', event);
    return true;
}
bool takesControlC(std::uint32_t event) {
    hear('c', event);
    return event == kConsoleControlC;
}
bool takesNothing(std::uint32_t event) {
    hear('n', event);
    return false;
}
bool leavesByItself(std::uint32_t event) {
    removeConsoleHandler(leavesByItself);
    hear('l', event);
    return true;
}
bool takesSlowly(std::uint32_t) {
    g_called.release();
    g_mayReturn.acquire();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    g_returned = true;
    return true;
}

std::string heardAfter(int signal, int calls) {
    g_heard.clear();
    std::raise(signal);
    for (int i = 0; i < calls; ++i)
        g_called.acquire();
    const std::lock_guard guard(g_lock);
    return g_heard;
}

TEST(Console, OffersAnEventToTheLastRegisteredFirstUntilOneTakesIt) {
    ASSERT_TRUE(addConsoleHandler(takesAll));
    ASSERT_TRUE(addConsoleHandler(takesControlC));
    ASSERT_TRUE(addConsoleHandler(takesNothing));
    EXPECT_EQ(heardAfter(SIGINT, 2), "n0c0");
    EXPECT_EQ(heardAfter(SIGTERM, 3), "n1c1a1");
    EXPECT_NE(g_handlerThread, std::this_thread::get_id());

    ASSERT_TRUE(addConsoleHandler(takesNothing));
    EXPECT_EQ(heardAfter(SIGINT, 3), "n0n0c0") << "added twice, called twice";
    EXPECT_TRUE(removeConsoleHandler(takesNothing));
    EXPECT_EQ(heardAfter(SIGINT, 2), "n0c0");
    EXPECT_TRUE(removeConsoleHandler(takesControlC));
    EXPECT_TRUE(removeConsoleHandler(takesNothing));
    EXPECT_FALSE(removeConsoleHandler(takesNothing));
    EXPECT_EQ(heardAfter(SIGINT, 1), "a0");

    ASSERT_TRUE(addConsoleHandler(leavesByItself));
    EXPECT_EQ(heardAfter(SIGTERM, 1), "l1");
    EXPECT_EQ(heardAfter(SIGTERM, 1), "a1");
    EXPECT_TRUE(removeConsoleHandler(takesAll));
}

TEST(Console, LosesNoEventOfMany) {
    ASSERT_TRUE(addConsoleHandler(takesAll));
    for (int i = 0; i < 500; ++i)
        std::raise(i % 2 == 0 ? SIGINT : SIGTERM);
    for (int i = 0; i < 500; ++i)
        g_called.acquire();
    EXPECT_FALSE(g_called.try_acquire());
    EXPECT_TRUE(removeConsoleHandler(takesAll));
}

TEST(Console, RemovalWaitsForACallThatIsUnderWay) {
    ASSERT_TRUE(addConsoleHandler(takesSlowly));
    std::raise(SIGINT);
    g_called.acquire();
    g_mayReturn.release();
    EXPECT_TRUE(removeConsoleHandler(takesSlowly));
    EXPECT_TRUE(g_returned);
}

TEST(Console, AFailingSystemCallLeavesTheHandlerOutAndALaterAttemptSucceeds) {
    for (const int failing : {1, 2}) {
        {
            const kit::FailingCalls calls("sigaction", failing, false);
            EXPECT_FALSE(addConsoleHandler(takesAll)) << failing;
        }
        EXPECT_FALSE(removeConsoleHandler(takesAll)) << failing;
    }
    ASSERT_TRUE(addConsoleHandler(takesAll));
    EXPECT_EQ(heardAfter(SIGINT, 1), "a0");
    EXPECT_TRUE(removeConsoleHandler(takesAll));
}

// The roles print "ready" and then wait to be ended.
int readyUntilEnded() {
    std::puts("ready");
    std::fflush(stdout);
    for (;;)
        std::this_thread::sleep_for(std::chrono::hours(1));
}

const ChildRole g_plain("plain", [](const std::vector<std::string>&) { return readyUntilEnded(); });

const ChildRole g_untaken("untaken", [](const std::vector<std::string>&) {
    addConsoleHandler([](std::uint32_t event) {
        std::printf("offered %u\n", event);
        std::fflush(stdout);
        return false;
    });
    return readyUntilEnded();
});

const ChildRole g_removed("removed", [](const std::vector<std::string>&) {
    addConsoleHandler(takesAll);
    removeConsoleHandler(takesAll);
    return readyUntilEnded();
});

const ChildRole g_firstThreadRefused("refused", [](const std::vector<std::string>&) {
    const kit::FailingCalls threads("pthread_create");
    if (addConsoleHandler(takesAll)) return 1;
    return readyUntilEnded();
});

// A program that handles events runs another that does not: the other one is ended by an event all the same.
const ChildRole g_parent("parent", [](const std::vector<std::string>& arguments) {
    addConsoleHandler(takesAll);
    ChildProcess child = ChildProcess::inRole("plain");
    child.waitForOutput("ready");
    arguments.at(0) == "interrupt" ? child.interrupt() : child.requestEnd();
    return child.wait() < 0 ? 42 : 1;
});

TEST(Console, AnEventThatNobodyTakesEndsTheProcess) {
    for (const char* role : {"plain", "untaken", "removed", "refused"}) {
        for (const bool interrupt : {true, false}) {
            ChildProcess child = ChildProcess::inRole(role);
            ASSERT_TRUE(child.waitForOutput("ready")) << role;
            interrupt ? child.interrupt() : child.requestEnd();
            EXPECT_EQ(child.wait(), interrupt ? -SIGINT : -SIGTERM) << role;
            const std::string offered = interrupt ? "offered 0\n" : "offered 1\n";
            EXPECT_EQ(child.output(), role == std::string("untaken") ? "ready\n" + offered : "ready\n");
        }
    }
}

TEST(Console, ChildrenAreUnaffected) {
    for (const char* event : {"interrupt", "end"}) {
        EXPECT_EQ(ChildProcess::inRole("parent", {event}).wait(), 42) << event;
    }
}

}  // namespace
