#include "platform/windows/windows_thread_record.h"

#include <new>

#include "platform/process_memory.h"

namespace KestSupport::platform {
namespace {

void WINAPI onThreadEnd(void* record) noexcept {
    static_cast<ThreadRecord*>(record)->leaving.store(true, std::memory_order_release);
}

// The system's own slots: with this compiler a thread_local variable costs a lock at each thread's first use.
struct Slots {
    DWORD record = TlsAlloc();
    DWORD key = TlsAlloc();
    DWORD end = FlsAlloc(&onThreadEnd);

    Slots() = default;
    Slots(const Slots&) = delete;
    Slots& operator=(const Slots&) = delete;
    ~Slots() {
        FlsFree(end);
        TlsFree(key);
        TlsFree(record);
    }
};

// The lock is held for a few loads and stores. A thread that holds it is not interrupted: its depth is not 0, or it
// has no record yet.
struct Records {
    SRWLOCK lock = SRWLOCK_INIT;
    ThreadRecord* first = nullptr;

    Records() = default;
    Records(const Records&) = delete;
    Records& operator=(const Records&) = delete;
    ~Records() {
        while (first != nullptr) {
            ThreadRecord* const record = first;
            first = record->next;
            delete record;
        }
    }
};

constinit ProcessObject<Slots> g_slots;
constinit ProcessObject<Records> g_records;
constinit std::atomic<std::uint32_t> g_latestKey{0};
// Of the threads that got no record. It forbids to interrupt any of them.
constinit ThreadRecord g_sharedRecord;

bool hasEnded(const ThreadRecord& record) noexcept {
    return record.leaving.load(std::memory_order_acquire) &&
           WaitForSingleObject(record.thread.get(), 0) == WAIT_OBJECT_0;
}

// Takes the records of ended threads out of the list and returns them as a list.
ThreadRecord* takeEnded(Records& records) noexcept {
    ThreadRecord* ended = nullptr;
    for (ThreadRecord** link = &records.first; *link != nullptr;) {
        ThreadRecord* const record = *link;
        if (hasEnded(*record)) {
            *link = record->next;
            record->next = ended;
            ended = record;
        } else {
            link = &record->next;
        }
    }
    return ended;
}

// A thread that attaches again while it ends keeps its key.
std::uint32_t keyOfThread(const Slots& slots) noexcept {
    auto key = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(TlsGetValue(slots.key)));
    if (key == 0) {
        key = g_latestKey.fetch_add(1, std::memory_order_relaxed) + 1;
        TlsSetValue(slots.key, reinterpret_cast<void*>(static_cast<std::uintptr_t>(key)));
    }
    return key;
}

ThreadRecord& attach(const Slots& slots) noexcept {
    auto* const record = new (std::nothrow) ThreadRecord;
    const HANDLE process = GetCurrentProcess();
    HANDLE thread = nullptr;
    if (record == nullptr || injectedFault("attachThread") != 0 ||
        !DuplicateHandle(process, GetCurrentThread(), process, &thread, 0, FALSE, DUPLICATE_SAME_ACCESS)) {
        delete record;
        g_sharedRecord.depth.store(1, std::memory_order_relaxed);
        return g_sharedRecord;
    }
    record->key = keyOfThread(slots);
    record->id = GetCurrentThreadId();
    record->thread = SystemHandle(thread);
    record->depth.store(1, std::memory_order_relaxed);
    TlsSetValue(slots.record, record);
    FlsSetValue(slots.end, record);

    Records& records = g_records.get();
    AcquireSRWLockExclusive(&records.lock);
    ThreadRecord* ended = takeEnded(records);
    record->next = records.first;
    records.first = record;
    ReleaseSRWLockExclusive(&records.lock);
    while (ended != nullptr) {
        ThreadRecord* const next = ended->next;
        delete ended;
        ended = next;
    }
    record->depth.store(0, std::memory_order_relaxed);
    return *record;
}

}  // namespace

// TlsGetValue clears the last error, which callers of ours read after a wait.
ThreadRecord& currentRecord() noexcept {
    const DWORD error = GetLastError();
    const Slots& slots = g_slots.get();
    auto* const record = static_cast<ThreadRecord*>(TlsGetValue(slots.record));
    SetLastError(error);
    return record != nullptr ? *record : attach(slots);
}

namespace internal {

void lockRecords() noexcept {
    currentRecord().depth.fetch_add(1, std::memory_order_relaxed);
    AcquireSRWLockExclusive(&g_records.get().lock);
}

ThreadRecord* firstRecord() noexcept {
    return g_records.get().first;
}

void unlockRecords() noexcept {
    ReleaseSRWLockExclusive(&g_records.get().lock);
    currentRecord().depth.fetch_sub(1, std::memory_order_relaxed);
}

}  // namespace internal
}  // namespace KestSupport::platform
