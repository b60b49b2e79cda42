// Threads of the system, and the moments at which one may be suspended or terminated.
#include "platform/thread.h"

#include <process.h>

#include <array>
#include <new>
#include <optional>

#include "platform/deadline.h"
#include "platform/windows/windows_api.h"
#include "platform/windows/windows_thread_record.h"

namespace KestSupport::platform {
namespace {

constexpr Deadline::Time kMostPatience = 5'000 * Deadline::kMillisecond;

HANDLE systemHandle(WaitHandle handle) noexcept {
    return static_cast<HANDLE>(static_cast<void*>(handle));
}

// A running thread keeps the module loaded, so an unload cannot take the code away from under it.
HMODULE referenceToThisModule() noexcept {
    HMODULE module = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                       reinterpret_cast<const wchar_t*>(reinterpret_cast<const void*>(&referenceToThisModule)),
                       &module);
    return module;
}

// Its reference to the module is released after the last instruction in it.
unsigned __stdcall runThread(void* argument) {
    ThreadRecord& record = *static_cast<ThreadRecord*>(argument);
    setCurrentRecord(record);
    const HMODULE module = record.module;
    const std::uint32_t exitCode = record.entry(record.argument);
    record.leaving.store(true, std::memory_order_release);
    FreeLibraryAndExitThread(module, exitCode);
}

// The libraries whose code may hold, or wait for, a lock that the whole process needs: that of the heap, of the
// loader, of a stream. Made before a thread is suspended, since the suspended thread may hold the loader's lock.
class RuntimeModules {
  public:
    RuntimeModules() noexcept {
        constexpr std::array<const wchar_t*, kCount> kNames{
            L"ntdll.dll",       L"kernel32.dll",       L"kernelbase.dll",      L"msvcrt.dll",   L"ucrtbase.dll",
            L"libstdc++-6.dll", L"libgcc_s_seh-1.dll", L"libwinpthread-1.dll", L"msvcp140.dll", L"vcruntime140.dll",
        };
        for (std::size_t i = 0; i < kCount; ++i)
            m_bases[i] = GetModuleHandleW(kNames[i]);
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

// Where a thread stands that was just suspended.
enum class Place { safe, inRuntime, protectedStep };

Place placeOf(HANDLE thread, const ThreadRecord* record, const RuntimeModules& runtime) noexcept {
    CONTEXT context{};
    context.ContextFlags = CONTEXT_CONTROL;
    const bool isKnown = GetThreadContext(thread, &context);  // returns when the thread stands still
    if (record == nullptr || record->depth.load() != 0) return Place::protectedStep;
    if (record->waiting.load() != 0) return Place::safe;
    return isKnown && !runtime.hold(static_cast<std::uintptr_t>(context.Rip)) ? Place::safe : Place::inRuntime;
}

// Suspends the thread once if that is possible now. One that was suspended before stands at a safe place, or has not
// begun.
std::optional<Place> suspendOnce(HANDLE thread, const RuntimeModules& runtime, bool anywhereInRuntime) noexcept {
    const DWORD id = GetThreadId(thread);
    const RecordGuard records;
    const DWORD before = SuspendThread(thread);
    if (before == static_cast<DWORD>(-1)) return std::nullopt;
    if (before > 0) return Place::safe;
    const ThreadRecord* const record =
        records.find([id](const ThreadRecord& each) { return each.id == id && !each.leaving.load(); });
    const Place place = placeOf(thread, record, runtime);
    if (place == Place::safe || (place == Place::inRuntime && anywhereInRuntime)) return Place::safe;
    ResumeThread(thread);
    return place;
}

enum class Stop { standing, ended, refused };

// Suspends the thread once more, at a place at which it may be cut off.
Stop stopSafely(HANDLE thread) noexcept {
    const RuntimeModules runtime;
    const Deadline::Time begin = Deadline::now();
    const Deadline endOfPatience = Deadline::at(begin + kMostPatience);
    const Deadline giveUp = Deadline::at(begin + 2 * kMostPatience);
    for (DWORD pause = 0;; pause = 1) {
        if (WaitForSingleObject(thread, 0) == WAIT_OBJECT_0) return Stop::ended;
        if (injectedFault("interruptThread") != 0) return Stop::refused;
        const std::optional<Place> place = suspendOnce(thread, runtime, endOfPatience.hasPassed());
        if (place == Place::safe) return Stop::standing;
        if (!place || giveUp.hasPassed()) return Stop::refused;
        Sleep(pause);
    }
}

}  // namespace

// The thread's record is in the list before the thread begins. So a thread that is terminated before its first step
// leaves nothing but the record.
bool createThread(ThreadEntry entry, void* argument, WaitHandle& handle, bool suspended) noexcept {
    handle = nullptr;
    auto* const record = new (std::nothrow) ThreadRecord;
    if (record == nullptr || injectedFault("createThread") != 0) {
        delete record;
        return false;
    }
    record->key = newThreadKey();
    record->entry = entry;
    record->argument = argument;
    record->module = referenceToThisModule();
    unsigned id = 0;
    const HANDLE thread =
        reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, &runThread, record, CREATE_SUSPENDED, &id));
    const HANDLE process = GetCurrentProcess();
    HANDLE duplicate = nullptr;
    if (thread == nullptr || !DuplicateHandle(process, thread, process, &duplicate, 0, FALSE, DUPLICATE_SAME_ACCESS)) {
        if (thread != nullptr) {
            TerminateThread(thread, 0);
            CloseHandle(thread);
        }
        if (record->module != nullptr) FreeLibrary(record->module);
        delete record;
        return false;
    }
    record->id = id;
    record->thread = SystemHandle(duplicate);
    addRecord(*record);
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
    if (id == GetCurrentThreadId()) {
        ThreadRecord& own = currentRecord();
        own.leaving.store(true, std::memory_order_release);
        FreeLibraryAndExitThread(own.module, exitCode);
    }
    const Stop stop = stopSafely(handle);
    if (stop != Stop::standing) return stop == Stop::ended;
    if (!TerminateThread(handle, exitCode)) {
        ResumeThread(handle);
        return false;
    }
    WaitForSingleObject(handle, INFINITE);
    HMODULE module = nullptr;
    {
        const RecordGuard records;
        ThreadRecord* const record =
            records.find([id](const ThreadRecord& each) { return each.id == id && !each.leaving.load(); });
        if (record != nullptr && !record->leaving.exchange(true)) module = record->module;
    }
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
    // Some systems accept a priority for a thread that has ended.
    const HANDLE handle = systemHandle(thread);
    return WaitForSingleObject(handle, 0) != WAIT_OBJECT_0 && SetThreadPriority(handle, static_cast<int>(priority));
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

// Windows before version 10 has no names of threads.
void setThreadName(const char* name) noexcept {
    using SetDescription = HRESULT(WINAPI*)(HANDLE, const wchar_t*);
    const FARPROC found = GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "SetThreadDescription");
    if (found == nullptr) return;
    std::array<wchar_t, 64> text{};
    const int most = static_cast<int>(text.size()) - 1;
    MultiByteToWideChar(CP_UTF8, 0, name, -1, text.data(), most);
    reinterpret_cast<SetDescription>(reinterpret_cast<void*>(found))(GetCurrentThread(), text.data());
}

void sleepThread(std::uint32_t milliseconds) noexcept {
    const WaitMark mark;
    Sleep(milliseconds);
}

}  // namespace KestSupport::platform
