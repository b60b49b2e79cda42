// Control events of the console. The system calls the routine on a thread of its own for each event.
#include <atomic>

#include "platform/console.h"
#include "platform/windows/windows_api.h"

namespace KestSupport::platform {
namespace {

constinit std::atomic<ConsoleEventSink> g_sink{nullptr};
constinit std::atomic<HANDLE> g_turn{nullptr};  // signalled while no event is being delivered

BOOL WINAPI onEvent(DWORD event) noexcept {
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) return FALSE;
    const ConsoleEventSink sink = g_sink.load(std::memory_order_acquire);
    if (sink == nullptr) return FALSE;
    const HANDLE turn = g_turn.load(std::memory_order_acquire);
    WaitForSingleObject(turn, INFINITE);
    const bool taken = sink(event == CTRL_C_EVENT ? kConsoleControlC : kConsoleControlBreak);
    SetEvent(turn);
    return taken;
}

HANDLE handleOf(StandardStream stream) noexcept {
    return standardHandle(static_cast<std::size_t>(stream));
}

}  // namespace

bool isTerminal(StandardStream stream) noexcept {
    DWORD mode = 0;
    return GetConsoleMode(handleOf(stream), &mode);
}

std::uint32_t terminalWidth(StandardStream stream) noexcept {
    CONSOLE_SCREEN_BUFFER_INFO screen{};
    if (!GetConsoleScreenBufferInfo(handleOf(stream), &screen)) return 0;
    return static_cast<std::uint32_t>(screen.srWindow.Right - screen.srWindow.Left + 1);
}

bool showsColours(StandardStream stream) noexcept {
    DWORD mode = 0;
    return GetConsoleMode(handleOf(stream), &mode) && (mode & ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0;
}

bool openConsoleEvents(ConsoleEvents kind, ConsoleEventSink sink) {
    if (injectedFault("openConsoleEvents") != 0) return false;
    if (kind != ConsoleEvents::ending) return true;
    if (g_turn.load(std::memory_order_relaxed) == nullptr) {
        const HANDLE turn = CreateEventW(nullptr, FALSE, TRUE, nullptr);
        if (turn == nullptr) return false;
        // An event may arrive, or its routine still run, after the last handler has been removed.
        thisModule(ModuleReference::forEver);
        g_turn.store(turn, std::memory_order_release);
    }
    g_sink.store(sink, std::memory_order_release);
    return SetConsoleCtrlHandler(&onEvent, TRUE);
}

void closeConsoleEvents(ConsoleEvents kind) {
    if (kind == ConsoleEvents::ending) SetConsoleCtrlHandler(&onEvent, FALSE);
}

}  // namespace KestSupport::platform
