// Makes the Nth allocation of this program fail, once or from then on, and counts the allocations that are alive. The
// program that links failing_allocations.cpp gets operator new and delete from there.
#pragma once

#include <atomic>
#include <cstdint>

namespace faults {

class FailingAllocations {
  public:
    /// first counts from 1; 0 makes none fail. fromThenOn: all later ones too. One object at a time.
    FailingAllocations(std::int64_t first, bool fromThenOn) noexcept {
        s_fromThenOn = fromThenOn;
        s_seen = 0;
        s_first = first;
    }
    FailingAllocations(const FailingAllocations&) = delete;
    FailingAllocations& operator=(const FailingAllocations&) = delete;
    ~FailingAllocations() { s_first = 0; }

    /// How many allocations were asked for, failed ones included.
    static std::int64_t seen() noexcept { return s_seen; }
    /// How many allocations of the whole program are alive.
    static std::int64_t alive() noexcept { return s_alive; }

    static void* allocate(std::size_t size, std::size_t alignment) noexcept;
    static void release(void* memory) noexcept;

    /// Lets every allocation succeed, uncounted, for a test's own checks.
    class Pause {
      public:
        Pause() noexcept : m_first(s_first.exchange(0)) {}
        Pause(const Pause&) = delete;
        Pause& operator=(const Pause&) = delete;
        ~Pause() { s_first = m_first; }

      private:
        const std::int64_t m_first;
    };

  private:
    inline static std::atomic<std::int64_t> s_first{0}, s_seen{0}, s_alive{0};
    inline static std::atomic<bool> s_fromThenOn{false};
};

}  // namespace faults
