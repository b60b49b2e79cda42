// The active timers in the order in which they fire: by the second in which they are due, and among those of one second
// the one inserted last first.
//
// Seconds near the present have a bucket each in a wheel, and a bitmap says which of them hold timers, so that
// inserting, removing and finding the first cost the same for one timer as for a hundred thousand. What is due later
// waits in one bucket of its own until the wheel has turned far enough; what is due before the wheel's first second
// shares the bucket of that second, sorted.
//
// A dispatch pass takes each due entry once. Those that come back while they are still due are laid aside until its
// end, so that the pass never walks over them again.
//
// Threads: the owner's lock guards the queue and all entries in it. A thread may be killed inside a change; every step
// leaves the chains of next pointers whole, and mend derives the rest from them again.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "support/timers.h"

namespace KestSupport::internal {

class TimerQueue {
  public:
    explicit TimerQueue(std::int64_t now) noexcept : m_base(now - kMargin) {}
    TimerQueue(const TimerQueue&) = delete;
    TimerQueue& operator=(const TimerQueue&) = delete;

    /// Called first by whoever has taken the lock, each time: mends what a killed thread left half done.
    void mend() noexcept {
        if (m_changing) repair();
    }
    /// The same, and turns the wheel to the present, given in calendar seconds.
    void settle(std::int64_t now) {
        mend();
        if (now < m_base || now >= m_turnAt) turn(now);
    }

    /// Puts in an entry that is not in the queue; its expiry is set.
    void insert(TimerEntry& entry) noexcept;
    /// Takes the entry out, if it is in.
    void remove(TimerEntry& entry) noexcept;
    bool contains(const TimerEntry& entry) const noexcept { return entry.generation == m_generation; }

    /// The first entry; null when there is none, or none that is due before horizon.
    TimerEntry* first() const noexcept;
    bool empty() const noexcept { return m_occupiedWords == 0 && m_buckets[kFar] == nullptr; }

    void beginPass() noexcept { ++m_pass; }
    /// Takes out the first entry that is due at now or before and that this pass has not had yet; null for none.
    TimerEntry* takeDue(std::int64_t now) noexcept;
    void endPass() noexcept;

    /// While first is null, settle must be called at least this often, in seconds, for the far ones to come near.
    static constexpr std::int64_t kLongestRest = 1000;

  private:
    static constexpr std::uint32_t kNear = 4096;            // seconds in the wheel
    static constexpr std::uint32_t kFar = kNear;            // bucket of what is due after those
    static constexpr std::uint32_t kLaidAside = kNear + 1;  // bucket of what a pass must not see again
    static constexpr std::uint32_t kBuckets = kNear + 2;
    static constexpr std::uint32_t kWordBits = 64;
    static constexpr std::int64_t kMargin = 64;  // small steps of the clock backwards do not turn the wheel

    std::uint32_t bucketOf(std::int64_t expiry) const noexcept;
    void link(TimerEntry& entry, std::uint32_t bucket) noexcept;
    void unlink(TimerEntry& entry) noexcept;
    void markOccupied(std::uint32_t bucket) noexcept;
    void turn(std::int64_t now) noexcept;
    void moveAll(std::uint32_t firstBucket, std::uint32_t lastBucket) noexcept;
    void repair() noexcept;

    std::int64_t m_base;                                   // the wheel's first second
    std::int64_t m_turnAt = m_base + kMargin + kNear / 2;  // turn again from this second on
    std::uint64_t m_nextSequence = 1;
    std::uint64_t m_pass = 0;
    std::uint64_t m_generation = 1;
    bool m_changing = false;            // a change is under way, or was when its thread was killed
    std::uint64_t m_occupiedWords = 0;  // bit w: word w of m_occupied is not 0
    std::array<std::uint64_t, kNear / kWordBits> m_occupied{};  // a bit for each bucket of the wheel
    std::array<TimerEntry*, kBuckets> m_buckets{};
};

}  // namespace KestSupport::internal
