// The signals that are console events, and what counts as a terminal.
#include "platform/console.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <semaphore>
#include <tuple>

#include "kit/child_process.h"
#include "kit/failing_calls.h"

namespace {

using kit::ChildProcess;
using kit::ChildRole;
using namespace KestSupport::platform;

std::string g_heard;  // written by handlers, read after their release of g_called
std::counting_semaphore<> g_called(0);
std::thread::id g_handlerThread;

// A handler that notes its name and the event.
template <char name, bool takesBreak>
bool hear(std::uint32_t event) {
    g_heard += {name, event == kConsoleReload ? 'r' : static_cast<char>('0' + event)};
    g_handlerThread = std::this_thread::get_id();
    g_called.release();
    return event == kConsoleControlC || takesBreak;
}
constexpr ConsoleHandler kTakesAll = hear<'a', true>;
constexpr ConsoleHandler kTakesControlC = hear<'c', false>;
constexpr ConsoleHandler kReloads = hear<'d', true>;

std::string heardAfter(int signal, int calls) {
    g_heard.clear();
    std::raise(signal);
    for (int i = 0; i < calls; ++i)
        g_called.acquire();
    return g_heard;
}

TEST(ConsoleHandler, HearsSignalsAsEvents) {
    for (const ConsoleHandler handler : {kTakesAll, kTakesControlC})
        ASSERT_TRUE(addConsoleHandler(handler));
    EXPECT_EQ(heardAfter(SIGINT, 1), "c0");
    EXPECT_EQ(heardAfter(SIGTERM, 2), "c1a1");
    EXPECT_NE(g_handlerThread, std::this_thread::get_id());
    ASSERT_TRUE(addConsoleHandler(kReloads, ConsoleEvents::reload));
    EXPECT_EQ(heardAfter(SIGHUP, 1), "dr");
    EXPECT_EQ(heardAfter(SIGTERM, 2), "c1a1");
    for (const ConsoleHandler handler : {kReloads, kTakesControlC})
        EXPECT_TRUE(removeConsoleHandler(handler));
    constexpr int kEvents = 500;
    for (int i = 0; i < kEvents; ++i)
        EXPECT_EQ(std::raise(i % 2 == 0 ? SIGINT : SIGTERM), 0);
    for (int i = 0; i < kEvents; ++i)
        g_called.acquire();
    EXPECT_TRUE(removeConsoleHandler(kTakesAll));
    EXPECT_FALSE(g_called.try_acquire()) << "an event came twice";
}

TEST(ConsoleHandler, HasReturnedWhenItIsRemoved) {
    static std::atomic<bool> returned{false};
    const ConsoleHandler takesSlowly = [](std::uint32_t) {
        g_called.release();
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        returned = true;
        return true;
    };
    ASSERT_TRUE(addConsoleHandler(takesSlowly));
    std::raise(SIGINT);
    g_called.acquire();
    EXPECT_TRUE(removeConsoleHandler(takesSlowly));
    EXPECT_TRUE(returned);
}

// Waits for an event that ends it, with handlers that take nothing, removed ones, none, or none after a failure.
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
        addConsoleHandler(kTakesAll);
        removeConsoleHandler(kTakesAll);
    } else if (kind == "refused") {
        const kit::FailingCalls threads("startConsoleThread");
        if (addConsoleHandler(kTakesAll)) return 1;
    }
    std::puts("ready");
    std::fflush(stdout);
    for (;;)
        std::this_thread::sleep_for(std::chrono::hours(1));
});

TEST(ConsoleEvent, EndsProcessThatDoesNotTakeIt) {
    for (const std::string kind : {"plain", "untaken", "removed", "refused", "child of a program that takes events"}) {
        const bool takesEvents = kind.starts_with("child");
        if (takesEvents) addConsoleHandler(kTakesAll);
        for (const auto& [send, signal, event] : {std::tuple{&ChildProcess::interrupt, SIGINT, "0"},
                                                  {&ChildProcess::requestEnd, SIGTERM, "1"},
                                                  {&ChildProcess::hangUp, SIGHUP, "256"}}) {
            ChildProcess child = ChildProcess::inRole("child", {kind});
            ASSERT_TRUE(child.waitForOutput("ready")) << kind;
            (child.*send)();
            EXPECT_EQ(child.wait(), -signal) << kind;
            EXPECT_EQ(child.output(), kind != "untaken" ? "ready\n" : std::string("ready\noffered ") + event + "\n");
        }
        EXPECT_EQ(removeConsoleHandler(kTakesAll), takesEvents);
    }
}

// Starts this program in a role, after shell commands.
ChildProcess startedAfter(const std::string& commands, const std::vector<std::string>& arguments, bool terminal) {
    return {std::filesystem::read_symlink("/proc/self/exe").string(), arguments, {"", commands, terminal}};
}

TEST(ConsoleEvent, StaysIgnoredIfItWasBefore) {
    ChildProcess child = startedAfter("trap '' HUP", {"--child-role=child", "untaken"}, false);
    ASSERT_TRUE(child.waitForOutput("ready"));
    child.hangUp();
    child.interrupt();
    EXPECT_EQ(child.wait(), -SIGINT);
    EXPECT_EQ(child.output(), "ready\noffered 0\n");
}

const ChildRole g_findsTerminals("finds terminals", [](const std::vector<std::string>&) {
    int terminals = 0;
    for (const StandardStream stream : {StandardStream::input, StandardStream::output, StandardStream::error})
        terminals = 2 * terminals + (isTerminal(stream) ? 1 : 0);
    return terminals;
});

TEST(IsTerminal, IsFalseForPipesAndClosedStreams) {
    for (const auto& [commands, terminal, found] :
         {std::tuple{"", true, 0b001}, {"exec <&2", true, 0b101}, {"exec 1>&- 2>/dev/null", true, 0}, {"", false, 0}})
        EXPECT_EQ(startedAfter(commands, {"--child-role=finds terminals"}, terminal).wait(), found) << commands;
}

}  // namespace
