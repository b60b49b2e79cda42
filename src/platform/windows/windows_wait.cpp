// The system's own waitable objects. A WaitHandle is the system's handle, whose two lowest bits are 0. That of a lock
// is the address of an OwnerLock with the lowest bit set.
#include "platform/wait.h"

#include <algorithm>
#include <array>
#include <new>

#include "platform/common/wait_arguments.h"
#include "platform/windows/windows_api.h"
#include "platform/windows/windows_owner_lock.h"
#include "platform/windows/windows_thread_record.h"

namespace KestSupport::platform {
namespace {

static_assert(kWaitObject0 == WAIT_OBJECT_0 && kWaitAbandoned == WAIT_ABANDONED_0 && kWaitTimeout == WAIT_TIMEOUT &&
              kWaitFailed == WAIT_FAILED && kInfinite == INFINITE && kMaximumWaitObjects == MAXIMUM_WAIT_OBJECTS);

WaitHandle waitHandle(HANDLE handle) noexcept {
    return static_cast<WaitHandle>(static_cast<void*>(handle));
}

/// Null when the handle is not that of a lock.
OwnerLock* lockOf(WaitHandle handle) noexcept {
    const auto address = reinterpret_cast<std::uintptr_t>(handle);
    return (address & 1) == 0 ? nullptr : reinterpret_cast<OwnerLock*>(address - 1);
}

// The system's query of a mutex, which no header declares.
struct MutexState {
    LONG count;  // 1: free; 1 minus the levels
    BOOLEAN ownedByCaller;
    BOOLEAN abandoned;
};
using QueryMutex = LONG(WINAPI*)(HANDLE, int informationClass, MutexState*, ULONG size, ULONG* needed);

const QueryMutex g_queryMutex = reinterpret_cast<QueryMutex>(systemFunction("NtQueryMutant"));

}  // namespace

WaitHandle createEvent(bool manualReset, bool signalled) noexcept {
    if (injectedFault("createEvent") != 0) return nullptr;
    return waitHandle(CreateEventW(nullptr, manualReset, signalled, nullptr));
}

bool setEvent(WaitHandle event) noexcept {
    return SetEvent(systemHandle(event));
}

bool resetEvent(WaitHandle event) noexcept {
    return ResetEvent(systemHandle(event));
}

bool pulseEvent(WaitHandle event) noexcept {
    return PulseEvent(systemHandle(event));
}

bool isAwaited(WaitHandle, WaitHandle) noexcept {
    return false;
}

WaitHandle createMutex() noexcept {
    if (injectedFault("createMutex") != 0) return nullptr;
    return waitHandle(CreateMutexW(nullptr, FALSE, nullptr));
}

WaitHandle createLock() noexcept {
    if (injectedFault("createMutex") != 0) return nullptr;
    auto* const lock = new (std::nothrow) OwnerLock(true);
    return lock == nullptr ? nullptr : reinterpret_cast<WaitHandle>(reinterpret_cast<std::uintptr_t>(lock) + 1);
}

bool releaseMutex(WaitHandle mutex) noexcept {
    if (OwnerLock* const lock = lockOf(mutex)) return lock->leave();
    return ReleaseMutex(systemHandle(mutex));
}

std::uint32_t mutexLevels(WaitHandle mutex) noexcept {
    if (const OwnerLock* const lock = lockOf(mutex)) return lock->levels();
    MutexState state{1, FALSE, FALSE};
    constexpr int kBasicInformation = 0;
    g_queryMutex(systemHandle(mutex), kBasicInformation, &state, sizeof state, nullptr);
    return static_cast<std::uint32_t>(1 - state.count);
}

WaitHandle createWaitableTimer(bool manualReset) noexcept {
    if (injectedFault("createWaitableTimer") != 0) return nullptr;
    return waitHandle(CreateWaitableTimerW(nullptr, manualReset, nullptr));
}

// The system counts relative times below 0. "At once" is an absolute time that has passed: after the shortest relative
// time, a call that cancels the timer could come before its signal.
bool setWaitableTimer(WaitHandle timer, std::int64_t delay, std::int32_t period) noexcept {
    if (period < 0 || injectedFault("setWaitableTimer") != 0) return false;
    LARGE_INTEGER due;
    due.QuadPart = delay > 0 ? -delay : 0;
    return SetWaitableTimer(systemHandle(timer), &due, period, nullptr, nullptr, FALSE);
}

bool cancelWaitableTimer(WaitHandle timer) noexcept {
    return CancelWaitableTimer(systemHandle(timer));
}

std::uint32_t waitForOne(WaitHandle object, std::uint32_t timeout) noexcept {
    if (OwnerLock* const lock = lockOf(object)) return lock->enter(timeout);
    const WaitMark mark;
    return WaitForSingleObject(systemHandle(object), timeout);
}

std::uint32_t waitForMany(std::span<const WaitHandle> objects, bool all, std::uint32_t timeout) noexcept {
    if (!canWaitFor(objects, all)) return kWaitFailed;
    std::array<HANDLE, kMaximumWaitObjects> handles;
    std::transform(objects.begin(), objects.end(), handles.begin(),
                   [](WaitHandle handle) { return systemHandle(handle); });
    const WaitMark mark;
    const DWORD result = WaitForMultipleObjects(static_cast<DWORD>(objects.size()), handles.data(), all, timeout);
    if (!all || result == WAIT_TIMEOUT || result == WAIT_FAILED) return result;
    return result >= WAIT_ABANDONED_0 ? kWaitAbandoned : kWaitObject0;
}

std::uint32_t signalAndWait(WaitHandle toSignal, WaitHandle toWait, std::uint32_t timeout) noexcept {
    const WaitMark mark;
    return SignalObjectAndWait(systemHandle(toSignal), systemHandle(toWait), timeout, FALSE);
}

void closeHandle(WaitHandle object) noexcept {
    if (OwnerLock* const lock = lockOf(object)) {
        delete lock;
    } else if (object != nullptr) {
        CloseHandle(systemHandle(object));
    }
}

}  // namespace KestSupport::platform
