// What the back end keeps about each thread that it has made, or that has used it.
//
// A record exists until its thread has ended and a later record is added. So it serves the thread's last destructors,
// and a killed thread leaves no work. The record says where its thread may be suspended or terminated:
//
//   leaving          nowhere: the thread is about to end, and the loader's lock may be its own
//   depth above 0    nowhere: a step that must not be cut off (uninterrupted.h), or the thread has not begun
//   waiting          everywhere: it is inside one of our waits, or writes a record to a file. The kernel undoes the
//                    first and ends or completes the second, and neither uses a lock of the process
//   otherwise        where it holds no lock of the system or the C runtime (windows_thread_place.h)
//
// The list has a lock of its own kind: a thread that holds it is not interrupted, since its depth is above 0. A thread
// that waits for it may be. A thread that is about to suspend another one holds it from before the suspension until it
// has decided, so the suspended thread cannot hold it, and two decisions about one thread do not overlap.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/thread.h"
#include "platform/windows/windows_api.h"

namespace KestSupport::platform {

struct ThreadRecord {
    std::uint32_t key = 0;  ///< of no other record of the list; 0 in the record that threads share
    DWORD id = 0;
    SystemHandle thread;
    std::atomic<std::uint32_t> depth{0};
    std::atomic<std::uint32_t> waiting{0};
    std::atomic<bool> leaving{false};        ///< it ends soon, or has ended
    std::atomic<bool> endIsReported{false};  ///< the system sets leaving, unless the last destructors already run
    // Of a thread that createThread made.
    ThreadEntry entry = nullptr;
    void* argument = nullptr;
    ThreadRecord* next = nullptr;
};

/// Adds the complete record of a thread to the list, which owns it from then on.
void addRecord(ThreadRecord& record) noexcept;
/// Gives the calling thread its record, which is in the list. Returns false if the system has no room for that.
bool setCurrentRecord(ThreadRecord& record) noexcept;
/// Returns a key for a new record, from 1 to kThreadKeys - 1. Higher bits of a word with a key have other meanings
/// (windows_owner_lock.cpp, windows_thread_bias.cpp).
std::uint32_t newThreadKey() noexcept;
inline constexpr std::uint32_t kThreadKeys = 0x40000000;
/// Returns the key of a thread by its number in the order of creation, or 0 if another record has that key.
std::uint32_t keyOfThread(std::uint64_t number) noexcept;

/// The calling thread's record, added by its first call. When memory is short, one that all such threads share until
/// they end; it forbids to interrupt any of them. The last error stays.
ThreadRecord& currentRecord() noexcept;

/// Marks the calling thread as inside one call of the system that may be cut off anywhere: one of our waits, or the
/// write of a record. The last error of the call survives the mark.
class WaitMark {
  public:
    WaitMark() noexcept : m_record(currentRecord()) { m_record.waiting.fetch_add(1, std::memory_order_relaxed); }
    WaitMark(const WaitMark&) = delete;
    WaitMark& operator=(const WaitMark&) = delete;
    ~WaitMark() { m_record.waiting.fetch_sub(1, std::memory_order_relaxed); }

  private:
    ThreadRecord& m_record;
};

/// Holds the lock of the list. Its owner neither allocates nor waits.
class RecordGuard {
  public:
    RecordGuard() noexcept;
    RecordGuard(const RecordGuard&) = delete;
    RecordGuard& operator=(const RecordGuard&) = delete;
    ~RecordGuard();

    /// Returns the first record that `matches` accepts, or null.
    template <typename Matches>
    ThreadRecord* find(const Matches& matches) const noexcept {
        ThreadRecord* record = first();
        while (record != nullptr && !matches(*record))
            record = record->next;
        return record;
    }

  private:
    static ThreadRecord* first() noexcept;

    ThreadRecord& m_own;
};

}  // namespace KestSupport::platform
