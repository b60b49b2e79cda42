#include "platform/interruption.h"

#include <atomic>
#include <new>

#include "platform/windows/windows_api.h"
#include "platform/windows/windows_thread_record.h"

namespace KestSupport::platform {
namespace {

// The number of the first request that is not reported yet. That of an event is one more than the system's.
constexpr int kNone = 0;
constexpr int kNotHeld = -1;  // no Interruption exists
constinit std::atomic<int> g_request{kNotHeld};

// The routine runs on threads of the system, possibly after the object's end. So the event stays open, and the module
// loaded.
constinit std::atomic<HANDLE> g_arrived{nullptr};

// Only services receive the end of a user's session, and it does not end them. After an event other than Ctrl+C and
// Ctrl+Break, the system ends the program when the routine returns, or after some seconds.
BOOL WINAPI onEvent(DWORD event) noexcept {
    int before = kNone;
    if (event == CTRL_LOGOFF_EVENT) return FALSE;
    if (!g_request.compare_exchange_strong(before, static_cast<int>(event) + 1) && before == kNotHeld) return FALSE;
    SetEvent(g_arrived.load(std::memory_order_acquire));
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) Sleep(INFINITE);
    return TRUE;
}

}  // namespace

struct Interruption::State {};

Interruption::Interruption() {
    if (g_arrived.load(std::memory_order_relaxed) == nullptr) {
        const HANDLE arrived = CreateEventW(nullptr, FALSE, FALSE, nullptr);
        if (arrived == nullptr) throw std::bad_alloc();
        g_arrived.store(arrived, std::memory_order_release);
        thisModule(ModuleReference::forEver);
    }
    g_request.store(kNone);
    SetConsoleCtrlHandler(&onEvent, TRUE);
}

Interruption::~Interruption() {
    SetConsoleCtrlHandler(&onEvent, FALSE);
    if (const int request = g_request.exchange(kNotHeld); request != kNone) takeEffect(request);
}

int Interruption::wait(std::uint32_t timeout) noexcept {
    const WaitMark mark;
    const bool hasArrived = WaitForSingleObject(g_arrived.load(std::memory_order_relaxed), timeout) == WAIT_OBJECT_0;
    return hasArrived ? g_request.exchange(kNone) : kNone;
}

void Interruption::takeEffect(int) noexcept {
    constexpr UINT kEndedByControlC = 0xC000013A;
    ExitProcess(kEndedByControlC);
}

}  // namespace KestSupport::platform
