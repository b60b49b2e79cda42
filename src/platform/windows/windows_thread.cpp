// Threads of the system, and the moments at which one may be suspended or terminated.
#include "platform/thread.h"

#include <process.h>

#include <array>
#include <memory>

#include "platform/deadline.h"
#include "platform/process_memory.h"
#include "platform/uninterrupted.h"
#include "platform/windows/windows_api.h"
#include "platform/windows/windows_thread_record.h"

namespace KestSupport::platform {
namespace {

constexpr Deadline::Time kMostPatience = 5'000 * Deadline::kMillisecond;

HANDLE systemHandle(WaitHandle handle) noexcept {
    return static_cast<HANDLE>(static_cast<void*>(handle));
}

struct Start {
    ThreadEntry entry;
    void* argument;
    HMODULE module;  // of this code, with a reference
};

// A running thread keeps the module loaded, so an unload cannot take the code away from under it.
HMODULE referenceToThisModule() noexcept {
    HMODULE module = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                       reinterpret_cast<const wchar_t*>(reinterpret_cast<const void*>(&referenceToThisModule)),
                       &module);
    return module;
}

unsigned __stdcall runThread(void* argument) {
    const Start start = *std::unique_ptr<Start>(static_cast<Start*>(argument));
    currentRecord().module = start.module;
    const std::uint32_t exitCode = start.entry(start.argument);
    FreeLibraryAndExitThread(start.module, exitCode);
}

// The libraries whose code may hold, or wait for, a lock that the whole process needs: that of the heap, of the
// loader, of a stream. Found once, since the loader's own lock may be held by a suspended thread.
class RuntimeModules {
  public:
    RuntimeModules() noexcept {
        constexpr std::array<const wchar_t*, kCount> names{
            L"ntdll.dll",       L"kernel32.dll",       L"kernelbase.dll",      L"msvcrt.dll",   L"ucrtbase.dll",
            L"libstdc++-6.dll", L"libgcc_s_seh-1.dll", L"libwinpthread-1.dll", L"msvcp140.dll", L"vcruntime140.dll",
        };
        for (std::size_t i = 0; i < kCount; ++i)
            m_bases[i] = GetModuleHandleW(names[i]);
    }

    bool hold(std::uintptr_t address) const noexcept {
        MEMORY_BASIC_INFORMATION region;
        if (VirtualQuery(reinterpret_cast<const void*>(address), &region, sizeof region) == 0) return true;
        for (const void* base : m_bases) {
            if (base != nullptr && base == region.AllocationBase) return true;
        }
        return false;
    }

  private:
    static constexpr std::size_t kCount = 10;
    std::array<const void*, kCount> m_bases{};
};

const RuntimeModules& runtimeModules() noexcept {
    static constinit ProcessObject<RuntimeModules> s_modules;
    return s_modules.get();
}

// Of a thread that stands still.
bool isInRuntime(HANDLE thread) noexcept {
    CONTEXT context{};
    context.ContextFlags = CONTEXT_CONTROL;
    if (!GetThreadContext(thread, &context)) return true;
    return runtimeModules().hold(static_cast<std::uintptr_t>(context.Rip));
}

bool mayBeCutOff(HANDLE thread) noexcept {
    const DWORD id = GetThreadId(thread);
    return withRecord([id](const ThreadRecord& record) { return record.id == id && !record.leaving.load(); },
                      [thread](const ThreadRecord* record) {
                          if (record == nullptr || record->depth.load() != 0) return false;
                          return record->waiting.load() != 0 || !isInRuntime(thread);
                      });
}

enum class Stop { standing, ended, refused };

// Suspends the thread once more, at a moment at which it may be cut off. One that was suspended before stands at such
// a moment, or has not begun.
Stop stopSafely(HANDLE thread) noexcept {
    runtimeModules();
    const Deadline patience = Deadline::at(Deadline::now() + kMostPatience);
    for (DWORD pause = 0;; pause = pause == 0 ? 1 : pause) {
        if (WaitForSingleObject(thread, 0) == WAIT_OBJECT_0) return Stop::ended;
        if (injectedFault("interruptThread") != 0) return Stop::refused;
        bool isSafe = false;
        {
            // The list of records is not locked by the thread that is about to stand still.
            const Uninterrupted noOther;
            const DWORD before = SuspendThread(thread);
            if (before == static_cast<DWORD>(-1)) return Stop::refused;
            isSafe = before > 0;
            if (!isSafe) {
                CONTEXT context{};
                context.ContextFlags = CONTEXT_CONTROL;
                GetThreadContext(thread, &context);  // returns when the thread stands still
            }
        }
        if (isSafe || mayBeCutOff(thread) || patience.hasPassed()) return Stop::standing;
        ResumeThread(thread);
        Sleep(pause);
    }
}

}  // namespace

bool createThread(ThreadEntry entry, void* argument, WaitHandle& handle, bool suspended) noexcept {
    handle = nullptr;
    auto* const start = new (std::nothrow) Start{entry, argument, nullptr};
    if (start == nullptr || injectedFault("createThread") != 0) {
        delete start;
        return false;
    }
    start->module = referenceToThisModule();
    const HMODULE module = start->module;
    const std::uintptr_t made = _beginthreadex(nullptr, 0, &runThread, start, CREATE_SUSPENDED, nullptr);
    if (made == 0) {
        delete start;
        if (module != nullptr) FreeLibrary(module);
        return false;
    }
    const HANDLE thread = reinterpret_cast<HANDLE>(made);
    // The entry may free the variable as soon as it runs.
    handle = static_cast<WaitHandle>(static_cast<void*>(thread));
    if (!suspended) ResumeThread(thread);
    return true;
}

bool suspendThread(WaitHandle thread) noexcept {
    const HANDLE handle = systemHandle(thread);
    if (handle == nullptr) return false;
    if (GetThreadId(handle) == GetCurrentThreadId()) {
        const WaitMark mark;
        return SuspendThread(handle) != static_cast<DWORD>(-1);
    }
    return stopSafely(handle) == Stop::standing;
}

bool resumeThread(WaitHandle thread) noexcept {
    const DWORD before = thread == nullptr ? 0 : ResumeThread(systemHandle(thread));
    return before != 0 && before != static_cast<DWORD>(-1);
}

bool terminateThread(WaitHandle thread, std::uint32_t exitCode) noexcept {
    const HANDLE handle = systemHandle(thread);
    if (handle == nullptr) return false;
    const DWORD id = GetThreadId(handle);
    if (id == GetCurrentThreadId()) FreeLibraryAndExitThread(currentRecord().module, exitCode);
    const Stop stop = stopSafely(handle);
    if (stop != Stop::standing) return stop == Stop::ended;
    const bool ended = TerminateThread(handle, exitCode);
    if (!ended) {
        ResumeThread(handle);
        return false;
    }
    WaitForSingleObject(handle, INFINITE);
    const auto markEnded = [](ThreadRecord* record) -> HMODULE {
        if (record == nullptr || record->leaving.exchange(true)) return nullptr;
        return record->module;
    };
    const HMODULE module = withRecord([id](const ThreadRecord& record) { return record.id == id; }, markEnded);
    if (module != nullptr) FreeLibrary(module);
    return true;
}

// The module stays loaded until the thread has ended, and at the end of the process the system has ended all threads
// before any static destructor of a library runs.
void leaveThread() noexcept {}

bool otherThreadsAreGone() noexcept {
    return isProcessEnding();
}

bool setThreadPriority(WaitHandle thread, ThreadPriority priority) noexcept {
    if (thread == nullptr || injectedFault("setThreadPriority") != 0) return false;
    return SetThreadPriority(systemHandle(thread), static_cast<int>(priority));
}

std::optional<std::uint32_t> threadExitCode(WaitHandle thread) noexcept {
    DWORD code = 0;
    if (thread == nullptr || !GetExitCodeThread(systemHandle(thread), &code)) return std::nullopt;
    return code;
}

std::uint32_t currentThreadId() noexcept {
    return GetCurrentThreadId();
}

void yieldThread() noexcept {
    SwitchToThread();
}

void sleepThread(std::uint32_t milliseconds) noexcept {
    const WaitMark mark;
    Sleep(milliseconds);
}

}  // namespace KestSupport::platform
