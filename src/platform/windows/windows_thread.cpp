// Threads of the system, and the moments at which one may be suspended or terminated.
#include "platform/thread.h"

#include <process.h>

#include <array>
#include <new>
#include <optional>

#include "platform/deadline.h"
#include "platform/uninterrupted.h"
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

// Whether a suspended thread may be cut off where it is, and where that is.
enum class Place { safe, inRuntime, protectedStep };

struct Sample {
    Place place = Place::protectedStep;
    std::uintptr_t instruction = 0;
    std::uintptr_t stack = 0;

    bool isSamePoint(const Sample& other) const noexcept {
        return instruction != 0 && instruction == other.instruction && stack == other.stack;
    }
};

Sample sampleOf(HANDLE thread, const ThreadRecord* record, const RuntimeModules& runtime) noexcept {
    CONTEXT context{};
    context.ContextFlags = CONTEXT_CONTROL;
    const bool isKnown = GetThreadContext(thread, &context);  // returns when the thread has stopped
    Sample sample{Place::protectedStep, static_cast<std::uintptr_t>(context.Rip),
                  static_cast<std::uintptr_t>(context.Rsp)};
    if (record == nullptr || record->depth.load() != 0) return sample;
    const bool isSafe = record->waiting.load() != 0 || (isKnown && !runtime.hold(sample.instruction));
    sample.place = isSafe ? Place::safe : Place::inRuntime;
    return sample;
}

// Suspends the thread once if it may be cut off now, which is also true inside the runtime if `isBlocked` accepts the
// sample. A thread that was suspended before is at such a place, or has not begun.
template <typename IsBlocked>
std::optional<Sample> suspendOnce(HANDLE thread, const RuntimeModules& runtime, const IsBlocked& isBlocked) noexcept {
    const DWORD id = GetThreadId(thread);
    const RecordGuard records;
    const DWORD before = SuspendThread(thread);
    if (before == static_cast<DWORD>(-1)) return std::nullopt;
    if (before > 0) return Sample{Place::safe};
    const ThreadRecord* const record =
        records.find([id](const ThreadRecord& each) { return each.id == id && !each.leaving.load(); });
    Sample sample = sampleOf(thread, record, runtime);
    if (sample.place == Place::inRuntime && isBlocked(sample)) sample.place = Place::safe;
    if (sample.place != Place::safe) ResumeThread(thread);
    return sample;
}

enum class Stop { standing, ended, refused };

// Suspends the thread once more, at a place at which it may be cut off. A thread that does not move inside the runtime
// for a time is blocked in a call of the program, such as a read. No lock of the heap is held that long.
Stop stopSafely(HANDLE thread) noexcept {
    constexpr Deadline::Time kBlocked = 100 * Deadline::kMillisecond;
    constexpr int kQuickTries = 500;  // a thread that uses the runtime most of the time is rarely outside
    const RuntimeModules runtime;
    const Deadline::Time begin = Deadline::now();
    Sample latest;
    Deadline::Time unmovedSince = begin;
    for (int tries = 0;; ++tries) {
        if (WaitForSingleObject(thread, 0) == WAIT_OBJECT_0) return Stop::ended;
        if (injectedFault("interruptThread") != 0) return Stop::refused;
        const Deadline::Time now = Deadline::now();
        const auto isBlocked = [&](const Sample& sample) {
            if (now - begin >= kMostPatience) return true;
            return sample.isSamePoint(latest) && now - unmovedSince >= kBlocked;
        };
        const std::optional<Sample> sample = suspendOnce(thread, runtime, isBlocked);
        if (sample && sample->place == Place::safe) return Stop::standing;
        if (!sample || now - begin >= 2 * kMostPatience) return Stop::refused;
        if (!sample->isSamePoint(latest)) unmovedSince = now;
        latest = *sample;
        Sleep(tries < kQuickTries ? 0 : 1);
    }
}

}  // namespace

// The thread's record is in the list before the thread begins. So a thread that is terminated before its first step
// leaves nothing but the record.
bool createThread(ThreadEntry entry, void* argument, WaitHandle& handle, bool suspended) noexcept {
    handle = nullptr;
    // A caller that is terminated in between would leave a thread that never begins.
    const Uninterrupted whole;
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
    if (WaitForSingleObject(systemHandle(thread), 0) == WAIT_OBJECT_0) return false;  // the system would accept it
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
