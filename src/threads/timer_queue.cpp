#include "threads/timer_queue.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <new>

namespace KestSupport::internal {
namespace {

// A thread that is killed leaves its writes in the order in which they were compiled: this holds the compiler to ours.
void keepOrder() noexcept {
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

class Change {
  public:
    explicit Change(bool& changing) noexcept : m_changing(changing) {
        m_changing = true;
        keepOrder();
    }
    Change(const Change&) = delete;
    Change& operator=(const Change&) = delete;
    ~Change() {
        keepOrder();
        m_changing = false;
    }

  private:
    bool& m_changing;
};

}  // namespace

void TimerQueue::insert(TimerEntry& entry) noexcept {
    const Change change(m_changing);
    entry.sequence = m_nextSequence++;
    link(entry, bucketOf(entry.expirySeconds));
}

void TimerQueue::remove(TimerEntry& entry) noexcept {
    if (!contains(entry)) return;
    const Change change(m_changing);
    unlink(entry);
}

TimerEntry* TimerQueue::first() const noexcept {
    const std::uint32_t start = bucketOf(m_base);
    const std::uint32_t word = start / kWordBits;
    const std::uint32_t bit = start % kWordBits;
    if (const std::uint64_t here = m_occupied[word] >> bit; here != 0) {
        return m_buckets[start + static_cast<std::uint32_t>(std::countr_zero(here))];
    }
    const std::uint64_t others = std::rotr(m_occupiedWords, static_cast<int>(word) + 1);
    if (others == 0) return nullptr;
    const std::uint32_t next = (word + 1 + static_cast<std::uint32_t>(std::countr_zero(others))) % kWordBits;
    return m_buckets[next * kWordBits + static_cast<std::uint32_t>(std::countr_zero(m_occupied[next]))];
}

TimerEntry* TimerQueue::takeDue(std::int64_t now) noexcept {
    const Change change(m_changing);
    for (;;) {
        TimerEntry* const entry = first();
        if (entry == nullptr || entry->expirySeconds > now) return nullptr;
        unlink(*entry);
        if (entry->pass != m_pass) {
            entry->pass = m_pass;
            return entry;
        }
        link(*entry, kLaidAside);
    }
}

void TimerQueue::endPass() noexcept {
    const Change change(m_changing);
    moveAll(kLaidAside, kLaidAside);
}

std::uint32_t TimerQueue::bucketOf(std::int64_t expiry) const noexcept {
    const std::int64_t held = std::max(expiry, m_base);
    if (held - m_base >= kNear) return kFar;
    return static_cast<std::uint32_t>(held & (kNear - 1));
}

void TimerQueue::link(TimerEntry& entry, std::uint32_t bucket) noexcept {
    TimerEntry* before = nullptr;
    TimerEntry* after = m_buckets[bucket];
    while (bucket < kNear && after != nullptr && after->expirySeconds < entry.expirySeconds) {
        before = after;
        after = after->next;
    }
    entry.next = after;
    entry.previous = before;
    entry.bucket = bucket;
    entry.generation = m_generation;
    keepOrder();
    (before != nullptr ? before->next : m_buckets[bucket]) = &entry;
    keepOrder();
    if (after != nullptr) after->previous = &entry;
    if (bucket < kNear) markOccupied(bucket);
}

void TimerQueue::unlink(TimerEntry& entry) noexcept {
    TimerEntry* const before = entry.previous;
    TimerEntry* const after = entry.next;
    (before != nullptr ? before->next : m_buckets[entry.bucket]) = after;
    keepOrder();
    entry.generation = 0;
    if (after != nullptr) after->previous = before;
    if (m_buckets[entry.bucket] != nullptr || entry.bucket >= kNear) return;
    std::uint64_t& word = m_occupied[entry.bucket / kWordBits];
    word &= ~(std::uint64_t{1} << (entry.bucket % kWordBits));
    if (word == 0) m_occupiedWords &= ~(std::uint64_t{1} << (entry.bucket / kWordBits));
}

void TimerQueue::markOccupied(std::uint32_t bucket) noexcept {
    m_occupied[bucket / kWordBits] |= std::uint64_t{1} << (bucket % kWordBits);
    m_occupiedWords |= std::uint64_t{1} << (bucket / kWordBits);
}

// Turning by half a wheel at once makes the far ones cost next to nothing. The wheel never turns past an entry that is
// still in it; while such a one is overdue, the turn is tried again each second.
void TimerQueue::turn(std::int64_t now) noexcept {
    const Change change(m_changing);
    const bool backwards = now < m_base;
    std::int64_t base = now - kMargin;
    if (const TimerEntry* entry = first(); entry != nullptr && !backwards) base = std::min(base, entry->expirySeconds);
    if (backwards || base > m_base) {
        m_base = base;
        moveAll(backwards ? 0 : kFar, kFar);
    }
    m_turnAt = std::max(m_base + kMargin + kNear / 2, now + 1);
}

// Takes the entries of the buckets out and puts them where they belong now. They go back in the order of their
// insertion, so that the order within a second stays; only where memory is too short to sort them it does not.
void TimerQueue::moveAll(std::uint32_t firstBucket, std::uint32_t lastBucket) noexcept {
    std::vector<TimerEntry*> entries;
    try {
        for (std::uint32_t bucket = firstBucket; bucket <= lastBucket; ++bucket) {
            for (TimerEntry* entry = m_buckets[bucket]; entry != nullptr; entry = entry->next)
                entries.push_back(entry);
        }
        std::sort(entries.begin(), entries.end(),
                  [](const TimerEntry* left, const TimerEntry* right) { return left->sequence < right->sequence; });
    } catch (const std::bad_alloc&) {
        entries.clear();
        for (std::uint32_t bucket = firstBucket; bucket <= lastBucket; ++bucket) {
            for (TimerEntry *entry = m_buckets[bucket], *next = nullptr; entry != nullptr; entry = next) {
                next = entry->next;
                unlink(*entry);
                link(*entry, bucketOf(entry->expirySeconds));
            }
        }
    }
    for (TimerEntry* entry : entries) {
        unlink(*entry);
        link(*entry, bucketOf(entry->expirySeconds));
    }
}

// The next pointers are the truth. An entry that is in no chain keeps an older generation and so counts as taken out.
void TimerQueue::repair() noexcept {
    const Change change(m_changing);
    ++m_generation;
    m_occupiedWords = 0;
    m_occupied.fill(0);
    for (std::uint32_t bucket = 0; bucket < kBuckets; ++bucket) {
        TimerEntry* before = nullptr;
        for (TimerEntry* entry = m_buckets[bucket]; entry != nullptr; before = entry, entry = entry->next) {
            entry->previous = before;
            entry->bucket = bucket;
            entry->generation = m_generation;
        }
        if (before != nullptr && bucket < kNear) markOccupied(bucket);
    }
    moveAll(0, kFar);
}

}  // namespace KestSupport::internal
