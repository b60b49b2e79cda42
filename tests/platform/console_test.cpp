#include "platform/console.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <semaphore>
#include <tuple>

#include "kit/child_process.h"
#include "kit/failing_calls.h"

namespace {

using kit::ChildProcess;
using kit::ChildRole;
using namespace KestSupport::platform;

std::mutex g_lock;  // guards g_heard
std::string g_heard;
std::counting_semaphore<> g_called(0);
std::atomic<bool> g_returned{false};
std::thread::id g_handlerThread;

// Notes who was offered which event, and takes what it is made to take.
template <char who, bool takesControlC, bool takesBreak>
bool hear(std::uint32_t event) {
    if (who == 'l') removeConsoleHandler(hear<who, takesControlC, takesBreak>);
    {
        const std::lock_guard guard(g_lock);
        g_heard += {who, event == kConsoleReload ? 'r' : static_cast<char>('0' + event)};
        g_handlerThread = std::this_thread::get_id();
    }
    g_called.release();
    return event == kConsoleControlC ? takesControlC : takesBreak;
}
constexpr ConsoleHandler takesAll = hear<'a', true, true>;
constexpr ConsoleHandler takesControlC = hear<'c', true, false>;
constexpr ConsoleHandler takesNothing = hear<'n', false, false>;
constexpr ConsoleHandler reloads = hear<'d', true, true>;
constexpr ConsoleHandler leavesByItself = hear<'l', true, true>;

std::string heardAfter(int signal, int calls) {
    g_heard.clear();
    std::raise(signal);
    for (int i = 0; i < calls; ++i)
        g_called.acquire();
    const std::lock_guard guard(g_lock);
    return g_heard;
}

TEST(Console, OffersAnEventToTheLastRegisteredFirstUntilOneTakesIt) {
    for (const ConsoleHandler handler : {takesAll, takesControlC, takesNothing})
        ASSERT_TRUE(addConsoleHandler(handler));
    EXPECT_EQ(heardAfter(SIGINT, 2), "n0c0");
    EXPECT_EQ(heardAfter(SIGTERM, 3), "n1c1a1");
    EXPECT_NE(g_handlerThread, std::this_thread::get_id());
    ASSERT_TRUE(addConsoleHandler(reloads, ConsoleEvents::reload));
    EXPECT_EQ(heardAfter(SIGHUP, 1), "dr") << "the others are for other events";
    EXPECT_EQ(heardAfter(SIGTERM, 3), "n1c1a1");
    EXPECT_TRUE(removeConsoleHandler(reloads));
    ASSERT_TRUE(addConsoleHandler(takesNothing));
    EXPECT_TRUE(removeConsoleHandler(takesControlC));
    EXPECT_EQ(heardAfter(SIGINT, 3), "n0n0a0") << "added twice, called twice";
    for (const bool isThere : {true, true, false})
        EXPECT_EQ(removeConsoleHandler(takesNothing), isThere);
    ASSERT_TRUE(addConsoleHandler(leavesByItself));
    EXPECT_EQ(heardAfter(SIGTERM, 1), "l1");
    for (int i = 0; i < 500; ++i)
        EXPECT_EQ(std::raise(i % 2 == 0 ? SIGINT : SIGTERM), 0);
    for (int i = 0; i < 500; ++i)
        g_called.acquire();
    EXPECT_TRUE(removeConsoleHandler(takesAll));
    EXPECT_FALSE(g_called.try_acquire()) << "none is lost, none comes twice";
    EXPECT_EQ(g_heard.find('l', 1), std::string::npos);
}

TEST(Console, RemovalWaitsForACallThatIsUnderWay) {
    const ConsoleHandler takesSlowly = [](std::uint32_t) {
        g_called.release();
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        g_returned = true;
        return true;
    };
    ASSERT_TRUE(addConsoleHandler(takesSlowly));
    std::raise(SIGINT);
    g_called.acquire();
    EXPECT_TRUE(removeConsoleHandler(takesSlowly));
    EXPECT_TRUE(g_returned);
}

TEST(Console, AFailingSystemCallLeavesTheHandlerOutAndALaterAttemptSucceeds) {
    for (const int failing : {1, 2}) {
        const kit::FailingCalls calls("openConsoleEvents", failing, false);
        EXPECT_FALSE(addConsoleHandler(takesAll) || removeConsoleHandler(takesAll)) << failing;
    }
    ASSERT_TRUE(addConsoleHandler(takesAll));
    EXPECT_EQ(heardAfter(SIGINT, 1), "a0");
    EXPECT_TRUE(removeConsoleHandler(takesAll));
}

// A program with or without handlers that waits to be ended by an event.
const ChildRole g_child("child", [](const std::vector<std::string>& arguments) {
    const std::string& kind = arguments.at(0);
    if (kind == "untaken") {
        const ConsoleHandler refuses = [](std::uint32_t event) {
            std::printf("offered %u\n", event);
            std::fflush(stdout);
            return false;
        };
        addConsoleHandler(refuses);
        addConsoleHandler(refuses, ConsoleEvents::reload);
    } else if (kind == "removed") {
        addConsoleHandler(takesAll);
        removeConsoleHandler(takesAll);
    } else if (kind == "refused") {
        const kit::FailingCalls threads("startConsoleThread");
        if (addConsoleHandler(takesAll)) return 1;
    }
    std::puts("ready");
    std::fflush(stdout);
    for (;;)
        std::this_thread::sleep_for(std::chrono::hours(1));
});

TEST(Console, AnEventThatNobodyTakesEndsTheProcess) {
    for (const std::string kind : {"plain", "untaken", "removed", "refused", "child of a program that takes events"}) {
        const bool takesEvents = kind.starts_with("child");
        ASSERT_TRUE(!takesEvents || addConsoleHandler(takesAll));
        for (const auto& [send, signal, event] : {std::tuple{&ChildProcess::interrupt, SIGINT, "0"},
                                                  {&ChildProcess::requestEnd, SIGTERM, "1"},
                                                  {&ChildProcess::hangUp, SIGHUP, "256"}}) {
            ChildProcess child = ChildProcess::inRole("child", {kind});
            ASSERT_TRUE(child.waitForOutput("ready")) << kind;
            (child.*send)();
            EXPECT_EQ(child.wait(), -signal) << kind;
            EXPECT_EQ(child.output(), kind != "untaken" ? "ready\n" : std::string("ready\noffered ") + event + "\n");
        }
        EXPECT_EQ(removeConsoleHandler(takesAll), takesEvents);
    }
}

TEST(Console, AHangUpThatWasIgnoredBeforeStaysIgnored) {
    const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
    ChildProcess child(self, {"--child-role=child", "untaken"}, {"", "trap '' HUP"});
    ASSERT_TRUE(child.waitForOutput("ready"));
    child.hangUp();
    child.interrupt();
    EXPECT_EQ(child.wait(), -SIGINT);
    EXPECT_EQ(child.output(), "ready\noffered 0\n");
}

const ChildRole asksForTerminals("asks for terminals", [](const std::vector<std::string>&) {
    int terminals = 0;
    for (const StandardStream stream : {StandardStream::input, StandardStream::output, StandardStream::error})
        terminals = 2 * terminals + (isTerminal(stream) ? 1 : 0);
    return terminals;
});

TEST(Console, TellsATerminalFromPipesAndClosedStreams) {
    const auto answer = [](const std::string& command, bool terminal) {
        const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
        return ChildProcess(self, {"--child-role=asks for terminals"}, {"", command, terminal}).wait();
    };
    EXPECT_EQ(answer("", true), 0b001);
    EXPECT_EQ(answer("exec <&2", true), 0b101);
    EXPECT_EQ(answer("exec 1>&- 2>/dev/null", true), 0);
    EXPECT_EQ(answer("", false), 0);
}

}  // namespace
