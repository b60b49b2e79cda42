#include "threads/timer_queue.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <new>
#include <vector>

namespace KestSupport::internal {
namespace {

// Keeps the compiler from reordering the writes before and after. Another thread sees the writes of a killed thread in
// their compiled order, up to the one at which it was killed.
void keepOrder() noexcept {
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

// Marks a change for its lifetime; an outer change stays marked.
class Change {
  public:
    explicit Change(bool& changing) noexcept : m_changing(changing), m_before(changing) {
        m_changing = true;
        keepOrder();
    }
    Change(const Change&) = delete;
    Change& operator=(const Change&) = delete;
    ~Change() {
        keepOrder();
        m_changing = m_before;
    }

  private:
    bool& m_changing;
    const bool m_before;
};

constexpr std::int64_t kNanoseconds = 1'000'000'000;

// Rounds down, also below 0.
std::int64_t wholeSeconds(std::int64_t nanoseconds) noexcept {
    return (nanoseconds >= 0 ? nanoseconds : nanoseconds - (kNanoseconds - 1)) / kNanoseconds;
}

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

TimerEntry* TimerQueue::takeDue(std::int64_t now) noexcept {
    const Change change(m_changing);
    for (;;) {
        TimerEntry* const entry = first();
        if (entry == nullptr || entry->expirySeconds > now) {
            // Entries that this pass has taken may have prevented a turn, and far entries may be due.
            if (now < m_turnAt || !turn(now)) return nullptr;
            continue;
        }
        unlink(*entry);
        if (entry->pass != m_pass) {
            entry->pass = m_pass;
            return entry;
        }
        link(*entry, kSetAside);
    }
}

void TimerQueue::endPass() noexcept {
    const Change change(m_changing);
    moveAll(kSetAside, kSetAside);
}

bool TimerQueue::precedes(const TimerEntry& entry, const TimerEntry& other) noexcept {
    if (entry.expirySeconds != other.expirySeconds) return entry.expirySeconds < other.expirySeconds;
    return entry.sequence > other.sequence;
}

void TimerQueue::link(TimerEntry& entry, std::uint32_t bucket) noexcept {
    TimerEntry* before = nullptr;
    TimerEntry* after = m_buckets[bucket];
    while (bucket < kNear && after != nullptr && precedes(*after, entry)) {
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

// A turn moves by half a wheel, so a far entry is moved once in 2,048 seconds at most. Returns false, without a turn,
// while the wheel holds an overdue entry; a pass removes that first.
bool TimerQueue::turn(std::int64_t now) noexcept {
    if (now < m_base) {
        turnTo(now, 0);
        return true;
    }
    if (const TimerEntry* entry = first(); entry != nullptr && entry->expirySeconds < now - kMargin) return false;
    turnTo(now, kFar);
    return true;
}

void TimerQueue::turnTo(std::int64_t now, std::uint32_t firstMoved) noexcept {
    const Change change(m_changing);
    m_base = now - kMargin;
    m_turnAt = now + kNear / 2;
    moveAll(firstMoved, kFar);
}

void TimerQueue::observe(std::int64_t steady, std::int64_t calendar) noexcept {
    settle(wholeSeconds(calendar));
    const std::int64_t offset = calendar - steady;
    if (m_offset != kUnknown) {
        // A delay between the two reads makes the offset greater, so it never looks like a step back.
        if (offset < m_offset + kSameOffset && offset > m_offset - kSameOffset) return;
        if (offset < m_offset) followStepBack(offset);
    }
    m_offset = offset;
}

void TimerQueue::followStepBack(std::int64_t offset) noexcept {
    const Change change(m_changing);
    for (TimerEntry* head : m_buckets) {
        for (TimerEntry* entry = head; entry != nullptr; entry = entry->next)
            entry->expirySeconds = std::min(entry->expirySeconds, wholeSeconds(entry->deadline + offset));
    }
    moveAll(0, kFar);
}

// No chain leads to the entry until it is linked again; m_moving keeps it for a recovery.
void TimerQueue::move(TimerEntry& entry) noexcept {
    m_moving = &entry;
    keepOrder();
    unlink(entry);
    link(entry, bucketOf(entry.expirySeconds));
    keepOrder();
    m_moving = nullptr;
}

// Moves the entries of these buckets to their present buckets. In the order from the last entry to the first, each is
// linked at the head of its bucket, without a search.
void TimerQueue::moveAll(std::uint32_t firstBucket, std::uint32_t lastBucket) noexcept {
    std::vector<TimerEntry*> entries;
    try {
        for (std::uint32_t bucket = firstBucket; bucket <= lastBucket; ++bucket) {
            for (TimerEntry* entry = m_buckets[bucket]; entry != nullptr; entry = entry->next)
                entries.push_back(entry);
        }
        std::sort(entries.begin(), entries.end(),
                  [](const TimerEntry* left, const TimerEntry* right) { return precedes(*right, *left); });
    } catch (const std::bad_alloc&) {  // slower, with the same result
        entries.clear();
        for (std::uint32_t bucket = firstBucket; bucket <= lastBucket; ++bucket) {
            for (TimerEntry *entry = m_buckets[bucket], *next = nullptr; entry != nullptr; entry = next) {
                next = entry->next;
                move(*entry);
            }
        }
    }
    for (TimerEntry* entry : entries)
        move(*entry);
}

// Rebuilds everything but the next pointers, which are correct after each step of a change. An entry that is in no
// chain keeps an older generation, so it counts as removed.
void TimerQueue::repair() noexcept {
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
    if (m_moving != nullptr && !contains(*m_moving)) link(*m_moving, bucketOf(m_moving->expirySeconds));
    m_moving = nullptr;
    moveAll(0, kFar);
    // The mark is cleared last: when this thread is killed before, the next owner of the lock repairs again.
    keepOrder();
    m_changing = false;
}

}  // namespace KestSupport::internal
