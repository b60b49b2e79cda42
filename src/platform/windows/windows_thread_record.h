// What the back end keeps about each thread that has used it.
//
// A thread's record stays until the thread has ended; a later attach deletes it. So it serves the thread's last
// destructors too, and a killed thread leaves no work. A thread is terminated or suspended only where that is safe, and
// its record says where that is:
//
//   depth above 0    inside a step that must not be cut off (uninterrupted.h)
//   waiting          inside one of our waits: safe, wherever in the system the thread stands
//   otherwise        safe when its next instruction is in no library of the runtime: a thread inside the system or the
//                    C runtime may hold the lock of the heap, or wait for it
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/windows/windows_api.h"

namespace KestSupport::platform {

struct ThreadRecord {
    std::uint32_t key = 0;  ///< of no other thread, living or ended
    DWORD id = 0;
    SystemHandle thread;
    std::atomic<std::uint32_t> depth{0};
    std::atomic<std::uint32_t> waiting{0};
    std::atomic<bool> leaving{false};  ///< it ends soon, or has ended
    HMODULE module = nullptr;          ///< the reference that a thread of ours gives back at its end
    ThreadRecord* next = nullptr;
};

/// The calling thread's record, made by its first call. When memory is short, one that all such threads share; it says
/// that none of them may be interrupted.
ThreadRecord& currentRecord() noexcept;

/// Marks the calling thread as inside one of our waits. The last error of the wait survives the mark.
class WaitMark {
  public:
    WaitMark() noexcept : m_record(currentRecord()) { m_record.waiting.fetch_add(1, std::memory_order_relaxed); }
    WaitMark(const WaitMark&) = delete;
    WaitMark& operator=(const WaitMark&) = delete;
    ~WaitMark() { m_record.waiting.fetch_sub(1, std::memory_order_relaxed); }

  private:
    ThreadRecord& m_record;
};

namespace internal {
void lockRecords() noexcept;
ThreadRecord* firstRecord() noexcept;
void unlockRecords() noexcept;
}  // namespace internal

/// Calls `use` with the record that `matches` accepts, null when there is none. Neither may allocate or wait: the
/// list's lock is held.
template <typename Matches, typename Use>
auto withRecord(const Matches& matches, const Use& use) noexcept {
    internal::lockRecords();
    ThreadRecord* record = internal::firstRecord();
    while (record != nullptr && !matches(*record))
        record = record->next;
    const auto result = use(record);
    internal::unlockRecords();
    return result;
}

}  // namespace KestSupport::platform
