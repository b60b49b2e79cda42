// A recursive lock in user space, for critical sections and for mutexes that are waited for alone. Without contention
// it does not enter the kernel, which a mutex of the system does twice.
//
// The system's own critical sections do not serve here: they keep waiting threads in lists on the stacks of these
// threads, so a waiting thread could not be terminated. Here a thread waits for an event. A terminated thread may have
// taken the event's signal, and a terminated owner gives none. So a waiting thread looks again from time to time.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/windows/windows_api.h"

namespace KestSupport::platform {

class OwnerLock {
  public:
    /// `recovers`: the next thread gets the lock of an owner that has ended. Otherwise it stays locked.
    constexpr explicit OwnerLock(bool recovers) noexcept : m_recovers(recovers) {}
    OwnerLock(const OwnerLock&) = delete;
    OwnerLock& operator=(const OwnerLock&) = delete;
    ~OwnerLock();

    /// Takes one level. Returns the result of a wait (wait.h).
    std::uint32_t enter(std::uint32_t timeout) noexcept;
    /// Releases one level. Returns false if the calling thread does not hold the lock.
    bool leave() noexcept;
    std::uint32_t levels() const noexcept { return m_levels.load(std::memory_order_relaxed); }

  private:
    struct WakeUp;
    struct WakeUpPool;

    std::uint32_t enterSlowly(std::uint32_t self, std::uint32_t timeout) noexcept;
    bool tryTake(std::uint32_t& word, std::uint32_t taken) noexcept;
    WakeUp* ownWakeUp() noexcept;
    static void sleep(const WakeUp* wakeUp, std::uint32_t timeout) noexcept;

    static WakeUpPool& pool() noexcept;

    std::atomic<std::uint32_t> m_word{0};    // the owner's key, 0: free; and whether a thread sleeps
    std::atomic<std::uint32_t> m_levels{0};  // written by the owner
    std::atomic<WakeUp*> m_wakeUp{nullptr};  // what threads sleep on; taken from the pool by the first one
    const bool m_recovers;
};

}  // namespace KestSupport::platform
