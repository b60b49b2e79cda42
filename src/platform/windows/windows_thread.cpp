// Threads of the system, and the moments at which one may be suspended or terminated.
#include "platform/thread.h"

#include <process.h>

#include <array>
#include <atomic>
#include <new>

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

unsigned __stdcall runThread(void* argument) {
    ThreadRecord& record = *static_cast<ThreadRecord*>(argument);
    setCurrentRecord(record);
    makeThreadLocalMemory();
    record.depth.store(0, std::memory_order_release);
    const std::uint32_t exitCode = record.entry(record.argument);
    record.leaving.store(true, std::memory_order_release);
    return exitCode;
}

enum class Stop { standing, moving, ended, refused };

// Suspends a thread at a place at which it may be ended.
class SafeStop {
  public:
    explicit SafeStop(HANDLE thread) noexcept : m_thread(thread), m_id(GetThreadId(thread)) {}

    // Suspends it once more. A thread that uses the runtime most of the time is rarely at such a place, so the first
    // looks follow each other quickly.
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
    // A thread that was suspended before is at such a place, or has not begun. One that ends now cannot be suspended; a
    // later look finds that it has ended.
    Stop tryOnce() noexcept {
        const RecordGuard records;
        const DWORD before = SuspendThread(m_thread);
        if (before == static_cast<DWORD>(-1)) {
            return GetLastError() == ERROR_SIGNAL_REFUSED ? Stop::refused : Stop::moving;
        }
        if (before > 0) return Stop::standing;
        CONTEXT context{};
        context.ContextFlags = CONTEXT_FULL;
        const bool isKnown = GetThreadContext(m_thread, &context);  // returns when the thread has stopped
        const ThreadRecord* const record =
            records.find([this](const ThreadRecord& each) { return each.id == m_id && !each.leaving.load(); });
        const bool mayBeCut = isKnown && record != nullptr && record->depth.load() == 0;
        if (mayBeCut && (record->waiting.load() != 0 || usesNoLock(context))) return Stop::standing;
        ResumeThread(m_thread);
        return Stop::moving;
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
    unsigned id = 0;
    const HANDLE thread =
        reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, &runThread, record, CREATE_SUSPENDED, &id));
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
    return SafeStop(handle).run() == Stop::standing;
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
        _endthreadex(exitCode);
    }
    const Stop stop = SafeStop(handle).run();
    if (stop != Stop::standing) return stop == Stop::ended;
    if (!TerminateThread(handle, exitCode)) {
        ResumeThread(handle);
        return false;
    }
    WaitForSingleObject(handle, INFINITE);
    const RecordGuard records;
    ThreadRecord* const record =
        records.find([id](const ThreadRecord& each) { return each.id == id && !each.leaving.load(); });
    if (record != nullptr) record->leaving.store(true);
    return true;
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
    const WaitMark mark;
    Sleep(milliseconds);
}

}  // namespace KestSupport::platform
