// Console events of a program with a console of its own: the order of handlers, and the default effect.
#include "platform/console.h"

#include <chrono>
#include <cstdio>

#include "kit/child_process.h"
#include "kit/failing_calls.h"
#include "kit/gate.h"
#include "kit/system.h"

namespace {

using kit::ChildProcess;
using kit::ChildRole;
using namespace KestSupport::platform;
using Words = std::vector<std::string>;

std::string g_heard;  // written by handlers, read after g_called has counted them
std::atomic<int> g_called{0};

// A handler that notes its name and the event. The one named 'l' removes itself.
template <char name, bool takes>
bool hear(std::uint32_t event) {
    if (name == 'l') removeConsoleHandler(hear<name, takes>);
    g_heard += {name, static_cast<char>('0' + event)};
    ++g_called;
    return takes;
}

void say(const std::string& text) {
    std::fputs(text.c_str(), stdout);
    std::fflush(stdout);
}

void sayHeard(int calls) {
    g_heard.clear();
    kit::interruptThisProgram();
    kit::await([calls] { return g_called == calls; });
    g_called = 0;
    say(g_heard + " ");
}

const ChildRole g_hears("hears", [](const Words&) -> int {
    for (const ConsoleHandler handler : {hear<'a', true>, hear<'c', true>, hear<'n', false>})
        addConsoleHandler(handler);
    sayHeard(2);
    removeConsoleHandler(hear<'c', true>);
    addConsoleHandler(hear<'n', false>);
    sayHeard(3);
    addConsoleHandler(hear<'l', true>);
    sayHeard(1);
    for (const ConsoleHandler handler : {hear<'l', true>, hear<'n', false>, hear<'n', false>, hear<'a', true>})
        say(removeConsoleHandler(handler) ? "removed " : "absent ");
    addConsoleHandler(hear<'n', false>);
    kit::interruptThisProgram();
    kit::await([] { return g_called == 1; });
    for (;;)
        std::this_thread::sleep_for(std::chrono::hours(1));
});

TEST(ConsoleEvent, ReachesHandlersAndThenEndsProgram) {
    ChildProcess child = ChildProcess::inRole("hears", {}, {.terminal = true});
    EXPECT_TRUE(kit::isEndByInterrupt(child.wait())) << child.errors();
    EXPECT_EQ(child.output(), "n0c0 n0n0a0 l0 absent removed removed removed ");
}

TEST(ConsoleHandler, IsNotAddedWhenSystemRefuses) {
    for (const int failing : {1, 2}) {
        const kit::FailingCalls calls("openConsoleEvents", failing, false);
        EXPECT_EQ(addConsoleHandler(hear<'a', true>), failing > kit::kConsoleSteps) << failing;
        EXPECT_EQ(removeConsoleHandler(hear<'a', true>), failing > kit::kConsoleSteps) << failing;
    }
    ASSERT_TRUE(addConsoleHandler(hear<'a', true>));
    EXPECT_TRUE(removeConsoleHandler(hear<'a', true>));
}

const ChildRole g_findsTerminals("finds terminals", [](const Words&) {
    int terminals = 0;
    for (const StandardStream stream : {StandardStream::input, StandardStream::output, StandardStream::error})
        terminals = 2 * terminals + (isTerminal(stream) ? 1 : 0) + static_cast<int>(8 * terminalWidth(stream));
    return terminals;
});

TEST(IsTerminal, IsFalseForPipesAndFiles) {
    EXPECT_EQ(ChildProcess::inRole("finds terminals").wait(), 0);
}

}  // namespace
