#include "threads/timer_queue.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <new>
#include <vector>

namespace KestSupport::internal {
namespace {

// A thread that is killed leaves its writes in the order in which they were compiled. This makes it the order of the
// source.
void keepOrder() noexcept {
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

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
        if (entry == nullptr || entry->expirySeconds > now) {
            // What the wheel held may have kept it from turning to far entries that are due, too.
            if (now < m_turnAt || !turn(now)) return nullptr;
            continue;
        }
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

bool TimerQueue::precedes(const TimerEntry& entry, const TimerEntry& other) noexcept {
    if (entry.expirySeconds != other.expirySeconds) return entry.expirySeconds < other.expirySeconds;
    return entry.sequence > other.sequence;
}

std::uint32_t TimerQueue::bucketOf(std::int64_t expiry) const noexcept {
    const std::int64_t held = std::max(expiry, m_base);
    if (held - m_base >= kNear) return kFar;
    return static_cast<std::uint32_t>(held & (kNear - 1));
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

// Turning by half a wheel at once makes the far ones cost next to nothing. False when the wheel stays as it is, because
// it still holds an entry that is overdue and that a pass takes out first.
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
        // A delay between the two reads makes the offset greater, never less, so it does not look like a step back.
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

// Recorded, because until it is in again no chain leads to it.
void TimerQueue::move(TimerEntry& entry) noexcept {
    m_moving = &entry;
    keepOrder();
    unlink(entry);
    link(entry, bucketOf(entry.expirySeconds));
    keepOrder();
    m_moving = nullptr;
}

// Puts the entries of the buckets where they belong now. From the last to the first, each finds its place at once.
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

// The next pointers are right at each step. An entry that is in no chain keeps an older generation and so counts as
// taken out.
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
    // The mark of the unfinished change goes last: a thread that is killed in a repair leaves the next one to repair.
    keepOrder();
    m_changing = false;
}

}  // namespace KestSupport::internal
