// The active timers in the order in which they fire: by the second of the calendar in which they are due, and among
// those of one second the one inserted last first.
//
// Seconds near the present have a bucket each in a wheel, and a bitmap shows which of them hold timers, so that
// inserting, removing and finding the first cost the same for one timer as for a hundred thousand. What is due later
// waits in one bucket of its own until the wheel has turned far enough; what is due before the wheel's first second
// shares the bucket of that second, sorted.
//
// The calendar may be set. Set forward, it makes entries due. Set back by s seconds, it would delay all entries by s,
// so observe moves each to the second of the new calendar in which its interval is over on the steady clock.
//
// A dispatch pass takes each due entry once. Those that are inserted again while they are still due are laid aside
// until its end, so that the pass never walks over them again.
//
// Threads: the owner's lock guards the queue and all entries in it. A thread may be killed inside a change; every step
// leaves the chains of next pointers whole, and mend derives the rest from them again.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>

#include "support/timers.h"

namespace KestSupport::internal {

class TimerQueue {
  public:
    explicit TimerQueue(std::int64_t now) noexcept : m_base(now - kMargin) {}
    TimerQueue(const TimerQueue&) = delete;
    TimerQueue& operator=(const TimerQueue&) = delete;

    /// Repairs what a killed thread left half done. The owner calls it first each time that it has taken the lock.
    void mend() noexcept {
        if (m_changing) repair();
    }
    /// The same, and turns the wheel to the present, given in calendar seconds; before first.
    void settle(std::int64_t now) noexcept {
        mend();
        if (now < m_base || now >= m_turnAt) turn(now);
    }
    /// The same, given both clocks in nanoseconds, the steady one read first. The owner calls it before it waits and
    /// before a pass. Costs a look at every entry when the calendar was set back, else next to nothing.
    void observe(std::int64_t steady, std::int64_t calendar) noexcept;

    /// Puts in an entry that is not in the queue; its expiry and its deadline are set.
    void insert(TimerEntry& entry) noexcept;
    /// Takes the entry out, if it is in.
    void remove(TimerEntry& entry) noexcept;
    bool contains(const TimerEntry& entry) const noexcept { return entry.generation == m_generation; }

    /// The first entry; null when there is none, or none that is due in the next kLongestRest seconds.
    TimerEntry* first() const noexcept;
    bool empty() const noexcept { return m_occupiedWords == 0 && m_buckets[kFar] == nullptr; }

    void beginPass() noexcept { ++m_pass; }
    /// Takes out the first entry that is due at now or before, in calendar seconds, and that this pass has not had yet;
    /// null for none.
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
    static constexpr std::int64_t kUnknown = std::numeric_limits<std::int64_t>::min();
    static constexpr std::int64_t kMargin = 64;             // small steps of the clock backwards do not turn the wheel
    static constexpr std::int64_t kSameOffset = 1'000'000;  // nanoseconds between two reads that are no step

    static bool precedes(const TimerEntry& entry, const TimerEntry& other) noexcept;
    std::uint32_t bucketOf(std::int64_t expiry) const noexcept;
    void link(TimerEntry& entry, std::uint32_t bucket) noexcept;
    void unlink(TimerEntry& entry) noexcept;
    void markOccupied(std::uint32_t bucket) noexcept;
    bool turn(std::int64_t now) noexcept;
    void turnTo(std::int64_t now, std::uint32_t firstMoved) noexcept;
    void followStepBack(std::int64_t offset) noexcept;
    void move(TimerEntry& entry) noexcept;
    void moveAll(std::uint32_t firstBucket, std::uint32_t lastBucket) noexcept;
    void repair() noexcept;

    std::int64_t m_base;                                   // the wheel's first second
    std::int64_t m_turnAt = m_base + kMargin + kNear / 2;  // turn again from this second on
    std::uint64_t m_nextSequence = 1;
    std::uint64_t m_pass = 0;
    std::uint64_t m_generation = 1;
    std::int64_t m_offset = kUnknown;   // calendar minus steady clock, in nanoseconds, when last observed
    bool m_changing = false;            // a change is under way, or was when its thread was killed
    TimerEntry* m_moving = nullptr;     // taken out by a change that puts it in again
    std::uint64_t m_occupiedWords = 0;  // bit w: word w of m_occupied is not 0
    std::array<std::uint64_t, kNear / kWordBits> m_occupied{};  // a bit for each bucket of the wheel
    std::array<TimerEntry*, kBuckets> m_buckets{};
};

}  // namespace KestSupport::internal
