#include "platform/windows/windows_thread_record.h"

#include <new>

#include "platform/process_memory.h"

namespace KestSupport::platform {
namespace {

void WINAPI onThreadEnd(void* record) noexcept {
    static_cast<ThreadRecord*>(record)->leaving.store(true, std::memory_order_release);
}

// The records, and the system's slots in which each thread finds its own: with some compilers, the first use of a
// thread_local variable by a thread takes a lock. All of it is constant-initialised, since a thread may come during
// the initialisation of static objects.
class Records : ProcessMemory {
  public:
    constexpr Records() noexcept : ProcessMemory(&deleteRecords) {}

    std::atomic<bool> locked{false};
    ThreadRecord* first = nullptr;
    std::size_t count = 0;
    std::size_t nextFullLook = 0;  // the count from which takeEnded asks the system about each record

    /// Null before the calling thread's record was set.
    ThreadRecord* current() noexcept {
        const DWORD slot = m_slot.load(std::memory_order_acquire);
        return slot == TLS_OUT_OF_INDEXES ? nullptr : static_cast<ThreadRecord*>(TlsGetValue(slot));
    }

    /// Returns false when the system has no slot for it.
    bool setCurrent(ThreadRecord& record) noexcept {
        if (m_slot.load(std::memory_order_acquire) == TLS_OUT_OF_INDEXES && !makeSlots()) return false;
        if (!TlsSetValue(m_slot.load(std::memory_order_acquire), &record)) return false;
        const bool isReported =
            injectedFault("reportThreadEnd") == 0 && FlsSetValue(m_endSlot.load(std::memory_order_acquire), &record);
        record.endIsReported.store(isReported, std::memory_order_relaxed);
        return true;
    }

  private:
    // Two threads may come at once. The first one's slots stay. The slot of the records is stored last.
    bool makeSlots() noexcept {
        const DWORD slot = TlsAlloc();
        if (slot == TLS_OUT_OF_INDEXES) return false;
        const DWORD endSlot = FlsAlloc(&onThreadEnd);
        DWORD none = FLS_OUT_OF_INDEXES;
        if (!m_endSlot.compare_exchange_strong(none, endSlot) && endSlot != FLS_OUT_OF_INDEXES) FlsFree(endSlot);
        none = TLS_OUT_OF_INDEXES;
        if (m_slot.compare_exchange_strong(none, slot)) {
            remember();
        } else {
            TlsFree(slot);
        }
        return true;
    }

    // Freeing the slot calls onThreadEnd for each thread that is still there, so the records go after it.
    static void deleteRecords(ProcessMemory& self) noexcept {
        Records& records = static_cast<Records&>(self);
        FlsFree(records.m_endSlot.exchange(FLS_OUT_OF_INDEXES));
        TlsFree(records.m_slot.exchange(TLS_OUT_OF_INDEXES));
        while (records.first != nullptr) {
            ThreadRecord* const record = records.first;
            records.first = record->next;
            delete record;
        }
    }

    std::atomic<DWORD> m_slot{TLS_OUT_OF_INDEXES};
    std::atomic<DWORD> m_endSlot{FLS_OUT_OF_INDEXES};
};

constinit Records g_records;
constinit std::atomic<std::uint64_t> g_latestNumber{0};
constinit ThreadRecord g_sharedRecord;

bool tryLockRecords() noexcept {
    return !g_records.locked.exchange(true, std::memory_order_acquire);
}

// Returns false if no other thread can release the lock: those that a process has ended at its own end release nothing.
bool pauseBeforeTry(int tries) noexcept {
    constexpr int kSpins = 100;
    if (tries < kSpins) {
        YieldProcessor();
        return true;
    }
    if (isProcessEnding()) return false;
    Sleep(1);
    return true;
}

void lockRecords() noexcept {
    for (int tries = 0; !tryLockRecords() && pauseBeforeTry(tries);)
        ++tries;
}

void unlockRecords() noexcept {
    g_records.locked.store(false, std::memory_order_release);
}

bool mayHaveEnded(const ThreadRecord& record) noexcept {
    return record.leaving.load(std::memory_order_acquire) || !record.endIsReported.load(std::memory_order_relaxed);
}

// Takes the records of ended threads out of the list and returns them as a list. The system reports no end of a thread
// that first uses the library in its last destructors. So all records are looked at when their number may have doubled.
ThreadRecord* takeEnded() noexcept {
    constexpr std::size_t kFewest = 16;
    const bool looksAtAll = g_records.count >= g_records.nextFullLook;
    ThreadRecord* ended = nullptr;
    for (ThreadRecord** link = &g_records.first; *link != nullptr;) {
        ThreadRecord* const record = *link;
        if ((looksAtAll || mayHaveEnded(*record)) && WaitForSingleObject(record->thread.get(), 0) == WAIT_OBJECT_0) {
            --g_records.count;
            *link = record->next;
            record->next = ended;
            ended = record;
        } else {
            link = &record->next;
        }
    }
    if (looksAtAll) g_records.nextFullLook = g_records.count * 2 + kFewest;
    return ended;
}

// Until its record is complete, a thread is not interrupted: none is found in the list, or its depth is above 0.
ThreadRecord& attach() noexcept {
    auto* const record = new (std::nothrow) ThreadRecord;
    SystemHandle thread = duplicateOf(GetCurrentThread());
    if (record == nullptr || injectedFault("attachThread") != 0 || !thread.isOpen() || !g_records.setCurrent(*record)) {
        delete record;
        g_records.setCurrent(g_sharedRecord);
        return g_sharedRecord;
    }
    record->key = newThreadKey();
    record->id = GetCurrentThreadId();
    record->thread = std::move(thread);
    record->depth.store(1, std::memory_order_relaxed);
    addRecord(*record);
    record->depth.store(0, std::memory_order_relaxed);
    return *record;
}

}  // namespace

void addRecord(ThreadRecord& record) noexcept {
    lockRecords();
    ThreadRecord* ended = takeEnded();
    record.next = std::exchange(g_records.first, &record);
    ++g_records.count;
    unlockRecords();
    while (ended != nullptr) {
        ThreadRecord* const next = ended->next;
        delete ended;
        ended = next;
    }
}

bool setCurrentRecord(ThreadRecord& record) noexcept {
    return g_records.setCurrent(record);
}

std::uint32_t keyOfThread(std::uint64_t number) noexcept {
    const auto key = static_cast<std::uint32_t>(number % kThreadKeys);
    const auto hasKey = [key](const ThreadRecord& each) { return each.key == key; };
    return number > kThreadKeys && RecordGuard().find(hasKey) != nullptr ? 0 : key;
}

std::uint32_t newThreadKey() noexcept {
    for (;;) {
        const std::uint64_t number = g_latestNumber.fetch_add(1, std::memory_order_relaxed) + 1;
        if (const std::uint32_t key = keyOfThread(number); key != 0) return key;
    }
}

// TlsGetValue clears the last error, which callers of ours read after a wait.
ThreadRecord& currentRecord() noexcept {
    const DWORD error = GetLastError();
    ThreadRecord* const found = g_records.current();
    ThreadRecord& record = found != nullptr ? *found : attach();
    // The shared record forbids it for all of its threads.
    if (&record == &g_sharedRecord && record.depth.load(std::memory_order_relaxed) == 0) record.depth.fetch_add(1);
    SetLastError(error);
    return record;
}

// A thread may be interrupted while it waits for the lock. The thread that is to interrupt it holds the lock at each
// look, so it would hardly ever find it elsewhere: a termination took up to 7 s.
RecordGuard::RecordGuard() noexcept : m_own(currentRecord()) {
    for (int tries = 0;; ++tries) {
        m_own.depth.fetch_add(1, std::memory_order_relaxed);
        if (tryLockRecords()) return;
        m_own.depth.fetch_sub(1, std::memory_order_relaxed);
        if (!pauseBeforeTry(tries)) break;
    }
    m_own.depth.fetch_add(1, std::memory_order_relaxed);
}

RecordGuard::~RecordGuard() {
    unlockRecords();
    m_own.depth.fetch_sub(1, std::memory_order_relaxed);
}

ThreadRecord* RecordGuard::first() noexcept {
    return g_records.first;
}

}  // namespace KestSupport::platform
