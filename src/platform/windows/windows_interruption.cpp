#include "platform/interruption.h"

#include <atomic>
#include <new>

#include "platform/windows/windows_api.h"
#include "platform/windows/windows_thread_record.h"

namespace KestSupport::platform {
namespace {

// The routine runs on threads of the system, possibly after the object's end. So the event stays open, and the module
// loaded.
constinit std::atomic<int> g_request{0};
constinit std::atomic<HANDLE> g_arrived{nullptr};

// An event's number is one more than the system's, so that it is not 0. Only services receive the end of a user's
// session, and it does not end them. After an event other than Ctrl+C and Ctrl+Break, the system ends the program when
// the routine returns, or after some seconds.
BOOL WINAPI onEvent(DWORD event) noexcept {
    if (event == CTRL_LOGOFF_EVENT) return FALSE;
    g_request.store(static_cast<int>(event) + 1, std::memory_order_release);
    SetEvent(g_arrived.load(std::memory_order_acquire));
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) Sleep(INFINITE);
    return TRUE;
}

}  // namespace

struct Interruption::State {
    bool reported = false;
};

Interruption::Interruption() : m_state(std::make_unique<State>()) {
    if (g_arrived.load(std::memory_order_relaxed) == nullptr) {
        const HANDLE arrived = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        if (arrived == nullptr) throw std::bad_alloc();
        g_arrived.store(arrived, std::memory_order_release);
        thisModule(ModuleReference::forEver);
    }
    g_request.store(0, std::memory_order_relaxed);
    ResetEvent(g_arrived.load(std::memory_order_relaxed));
    SetConsoleCtrlHandler(&onEvent, TRUE);
}

Interruption::~Interruption() {
    SetConsoleCtrlHandler(&onEvent, FALSE);
    const int request = g_request.load(std::memory_order_acquire);
    if (request != 0 && !m_state->reported) takeEffect(request);
}

int Interruption::wait(std::uint32_t timeout) noexcept {
    const WaitMark mark;
    if (WaitForSingleObject(g_arrived.load(std::memory_order_relaxed), timeout) != WAIT_OBJECT_0) return 0;
    m_state->reported = true;
    return g_request.load(std::memory_order_acquire);
}

void Interruption::takeEffect(int) noexcept {
    constexpr UINT kEndedByControlC = 0xC000013A;
    ExitProcess(kEndedByControlC);
}

}  // namespace KestSupport::platform
