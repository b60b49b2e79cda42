// Threads of the system, and the moments at which one may be suspended or terminated.
#include "platform/thread.h"

#include <array>
#include <atomic>
#include <new>
#include <optional>

#include "platform/deadline.h"
#include "platform/uninterrupted.h"
#include "platform/windows/windows_thread_place.h"
#include "platform/windows/windows_thread_record.h"

namespace KestSupport::platform {
namespace {

// With mingw-w64, the thread's first use of a thread_local variable takes a lock of all threads in the runtime. If the
// runtime is linked into the program, its code cannot be told from the program's, so a termination there left the lock
// taken: no thread could end then.
void makeThreadLocalMemory() noexcept {
    [[maybe_unused]] static thread_local volatile bool t_isUsed = false;
    t_isUsed = true;
}

DWORD WINAPI runThread(void* argument) {
    ThreadRecord& record = *static_cast<ThreadRecord*>(argument);
    const bool isCurrent = setCurrentRecord(record);
    makeThreadLocalMemory();
    // Without its record, the thread cannot say where it must not be interrupted.
    if (isCurrent) record.depth.store(0, std::memory_order_release);
    const std::uint32_t exitCode = record.entry(record.argument);
    record.leaving.store(true, std::memory_order_release);
    return exitCode;
}

enum class Stop { done, moving, ended, refused };

// Suspends a thread, or ends it, at a place at which it may be ended.
class SafeStop {
  public:
    explicit SafeStop(HANDLE thread, std::optional<DWORD> exitCode = std::nullopt) noexcept
        : m_thread(thread), m_id(GetThreadId(thread)), m_exitCode(exitCode) {}

    // A thread that uses the runtime most of the time is rarely at such a place, so the first looks follow each other
    // quickly.
    Stop run() noexcept {
        constexpr std::uint32_t kGiveUpAfter = 10'000;  // milliseconds
        constexpr int kQuickTries = 500;
        const Deadline giveUp = Deadline::after(kGiveUpAfter);
        for (int tries = 0; !giveUp.hasPassed(); ++tries) {
            if (WaitForSingleObject(m_thread, 0) == WAIT_OBJECT_0) return Stop::ended;
            if (injectedFault("interruptThread") != 0) return Stop::refused;
            if (const Stop stop = tryOnce(); stop != Stop::moving) return stop;
            Sleep(tries < kQuickTries ? 0 : 1);
        }
        return Stop::refused;
    }

  private:
    // A thread that was suspended before, perhaps as often as the system permits, is at such a place or has not begun.
    // One that ends now cannot be suspended; a later look finds that it has ended. The thread is ended under the lock,
    // so a caller that is itself terminated does not leave it suspended.
    Stop tryOnce() noexcept {
        const RecordGuard records;
        ThreadRecord* const record =
            records.find([this](const ThreadRecord& each) { return each.id == m_id && !each.leaving.load(); });
        const DWORD before = SuspendThread(m_thread);
        const bool isCounted = before != static_cast<DWORD>(-1);
        if (!isCounted && GetLastError() != ERROR_SIGNAL_REFUSED) return Stop::moving;
        const bool isAtPlace = before != 0 || mayBeCut(record);
        if (isAtPlace && !m_exitCode && isCounted) return Stop::done;
        if (isAtPlace && m_exitCode && TerminateThread(m_thread, *m_exitCode)) {
            if (record != nullptr) record->leaving.store(true);
            return Stop::done;
        }
        if (isCounted) ResumeThread(m_thread);
        return isAtPlace ? Stop::refused : Stop::moving;
    }

    bool mayBeCut(const ThreadRecord* record) noexcept {
        CONTEXT context{};
        context.ContextFlags = CONTEXT_FULL;
        if (!GetThreadContext(m_thread, &context)) return false;  // returns when the thread has stopped
        if (record == nullptr || record->leaving.load() || record->depth.load() != 0) return false;
        return record->waiting.load() != 0 || usesNoLock(context);
    }

    bool usesNoLock(const CONTEXT& context) noexcept {
        constexpr std::uint32_t kLastsFrom = 100;  // milliseconds
        const RuntimeLocks::Use use = m_locks.useBy(context);
        if (use != RuntimeLocks::Use::noneIfCallLasts) return use == RuntimeLocks::Use::none;
        const bool isSameCall = context.Rip == m_instruction && context.Rsp == m_stack;
        if (!isSameCall) m_lasts = Deadline::after(kLastsFrom);
        m_instruction = context.Rip;
        m_stack = context.Rsp;
        return isSameCall && m_lasts.hasPassed();
    }

    const HANDLE m_thread;
    const DWORD m_id;
    const std::optional<DWORD> m_exitCode;  // none: the thread is suspended
    const RuntimeLocks m_locks;
    // The system call of the latest look that found one.
    DWORD64 m_instruction = 0;
    DWORD64 m_stack = 0;
    Deadline m_lasts = Deadline::at(0);
};

}  // namespace

// With its first thread the module stays loaded for ever, so an unload cannot take the code away from under one. A
// reference for each thread would need the lock of the loader at each creation.
void prepareForThreads() noexcept {
    static constinit std::atomic<bool> isPinned{false};
    if (!isPinned.load(std::memory_order_relaxed)) isPinned.store(thisModule(ModuleReference::forEver) != nullptr);
}

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
    prepareForThreads();
    // While the thread begins, the loader calls code of the program's libraries, and the program's own.
    record->depth.store(1, std::memory_order_relaxed);
    // The C runtime's own function may take the lock of the loader, for which a caller that has a lock must not wait
    // (prepareForThreads). The runtime makes its data of a thread when the thread first uses it.
    DWORD id = 0;
    const HANDLE thread = CreateThread(nullptr, 0, &runThread, record, CREATE_SUSPENDED, &id);
    SystemHandle duplicate = duplicateOf(thread);
    if (!duplicate.isOpen()) {
        if (thread != nullptr) {
            TerminateThread(thread, 0);
            CloseHandle(thread);
        }
        delete record;
        return false;
    }
    record->id = id;
    record->thread = std::move(duplicate);
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
    return SafeStop(handle).run() == Stop::done;
}

bool resumeThread(WaitHandle thread) noexcept {
    const DWORD before = thread == nullptr ? 0 : ResumeThread(systemHandle(thread));
    return before != 0 && before != static_cast<DWORD>(-1);
}

bool terminateThread(WaitHandle thread, std::uint32_t exitCode) noexcept {
    const HANDLE handle = systemHandle(thread);
    if (handle == nullptr) return false;
    if (GetThreadId(handle) == GetCurrentThreadId()) {
        currentRecord().leaving.store(true, std::memory_order_release);
        ExitThread(exitCode);
    }
    const Stop stop = SafeStop(handle, exitCode).run();
    if (stop == Stop::done) WaitForSingleObject(handle, INFINITE);
    return stop == Stop::done || stop == Stop::ended;
}

// The system's own wait is as cheap.
bool endsSoon(WaitHandle) noexcept {
    return false;
}

// The module stays loaded, and at the end of the process the system has ended all threads before any static destructor
// of a library runs.
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

// Windows before version 10 has no names of threads.
void setThreadName(const char* name) noexcept {
    using SetDescription = HRESULT(WINAPI*)(HANDLE, const wchar_t*);
    void* const found = systemFunction("SetThreadDescription", L"kernel32.dll");
    if (found == nullptr) return;
    std::array<wchar_t, 64> text{};
    const int most = static_cast<int>(text.size()) - 1;
    MultiByteToWideChar(CP_UTF8, 0, name, -1, text.data(), most);
    reinterpret_cast<SetDescription>(found)(GetCurrentThread(), text.data());
}

void yieldThread() noexcept {
    SwitchToThread();
}

void sleepThread(std::uint32_t milliseconds) noexcept {
    const Deadline end = Deadline::afterNumber(milliseconds);
    do {
        const DWORD rest = end.rest();
        const WaitMark mark;
        Sleep(rest);  // up to a tick of the system's clock too short
    } while (!end.hasPassed());
}

}  // namespace KestSupport::platform
