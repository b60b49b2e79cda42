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

}  // namespace

bool isTerminal(StandardStream stream) noexcept {
    constexpr DWORD handles[] = {STD_INPUT_HANDLE, STD_OUTPUT_HANDLE, STD_ERROR_HANDLE};
    DWORD mode = 0;
    return GetConsoleMode(GetStdHandle(handles[static_cast<int>(stream)]), &mode);
}

bool openConsoleEvents(ConsoleEvents kind, ConsoleEventSink sink) {
    if (injectedFault("openConsoleEvents") != 0) return false;
    if (kind != ConsoleEvents::ending) return true;
    if (g_turn.load(std::memory_order_relaxed) == nullptr) {
        const HANDLE turn = CreateEventW(nullptr, FALSE, TRUE, nullptr);
        if (turn == nullptr) return false;
        g_turn.store(turn, std::memory_order_release);
    }
    g_sink.store(sink, std::memory_order_release);
    return SetConsoleCtrlHandler(&onEvent, TRUE);
}

void closeConsoleEvents(ConsoleEvents kind) {
    if (kind == ConsoleEvents::ending) SetConsoleCtrlHandler(&onEvent, FALSE);
}

}  // namespace KestSupport::platform
