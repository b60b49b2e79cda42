#include "platform/windows/windows_owner_lock.h"

#include <algorithm>
#include <mutex>
#include <new>

#include "platform/deadline.h"
#include "platform/process_memory.h"
#include "platform/spin.h"
#include "platform/thread_bias.h"
#include "platform/uninterrupted.h"
#include "platform/wait.h"
#include "platform/windows/windows_thread_record.h"

namespace KestSupport::platform {
namespace {

constexpr std::uint32_t kAwaited = 0x80000000;  // beside the owner's key
constexpr std::uint32_t kLook = 50;             // milliseconds

// Nanoseconds. A look at a lock that another processor is about to release is cheaper than a sleep.
constexpr unsigned kSpin = 2500;

}  // namespace

// Released by the thread that leaves a lock, which another thread may destroy at that moment. So the event is not
// closed then but serves the next lock, where a late signal only causes one more look.
struct OwnerLock::WakeUp {
    SystemHandle event{CreateEventW(nullptr, FALSE, FALSE, nullptr)};
    WakeUp* next = nullptr;
};

struct OwnerLock::WakeUpPool : ProcessMemory {
    constexpr WakeUpPool() noexcept : ProcessMemory(&deleteUnused) {}

    /// Null when memory is short.
    WakeUp* take() noexcept {
        {
            const std::lock_guard guard(m_lock);
            if (m_unused != nullptr) return std::exchange(m_unused, m_unused->next);
        }
        auto* const made = new (std::nothrow) WakeUp;
        if (made == nullptr || made->event.isOpen()) return made;
        delete made;
        return nullptr;
    }

    void putBack(WakeUp& wakeUp) noexcept {
        const std::lock_guard guard(m_lock);
        if (!std::exchange(m_isRemembered, true)) remember();
        wakeUp.next = std::exchange(m_unused, &wakeUp);
    }

  private:
    static void deleteUnused(ProcessMemory& self) noexcept {
        WakeUpPool& pool = static_cast<WakeUpPool&>(self);
        while (pool.m_unused != nullptr)
            delete std::exchange(pool.m_unused, pool.m_unused->next);
        pool.m_isRemembered = false;  // a lock that is destroyed later puts another one back
    }

    UninterruptedMutex m_lock;  // guards the members below
    WakeUp* m_unused = nullptr;
    bool m_isRemembered = false;
};

OwnerLock::WakeUpPool& OwnerLock::pool() noexcept {
    static constinit WakeUpPool pool;
    return pool;
}

OwnerLock::~OwnerLock() {
    if (WakeUp* const wakeUp = m_wakeUp.load(std::memory_order_acquire)) pool().putBack(*wakeUp);
}

std::uint32_t OwnerLock::enter(std::uint32_t timeout) noexcept {
    const std::uint32_t self = threadKey();
    std::uint32_t word = 0;
    if (tryTake(word, self)) return kWaitObject0;
    if ((word & ~kAwaited) != self) return enterSlowly(self, timeout);
    m_levels.store(levels() + 1, std::memory_order_relaxed);
    return kWaitObject0;
}

// The event of a mark that this call sees is there: a thread stores it before it sets the mark.
bool OwnerLock::leave() noexcept {
    std::uint32_t unmarked = threadKey();
    if ((m_word.load(std::memory_order_relaxed) & ~kAwaited) != unmarked) return false;
    const std::uint32_t rest = levels() - 1;
    m_levels.store(rest, std::memory_order_relaxed);
    if (rest != 0) return true;
    if (m_word.compare_exchange_strong(unmarked, 0, std::memory_order_release, std::memory_order_acquire)) return true;
    const WakeUp& wakeUp = *m_wakeUp.load(std::memory_order_acquire);
    m_word.store(0, std::memory_order_release);
    SetEvent(wakeUp.event.get());
    return true;
}

bool OwnerLock::tryTake(std::uint32_t& word, std::uint32_t taken) noexcept {
    if (!m_word.compare_exchange_strong(word, taken, std::memory_order_acquire)) return false;
    m_levels.store(1, std::memory_order_relaxed);
    return true;
}

// A thread that has slept keeps the mark, since other threads may sleep too.
std::uint32_t OwnerLock::enterSlowly(std::uint32_t self, std::uint32_t timeout) noexcept {
    const auto look = [&] {
        std::uint32_t word = 0;
        return m_word.load(std::memory_order_relaxed) == 0 && tryTake(word, self);
    };
    if (timeout != 0 && spinUntil(pausesFor(kSpin), look)) return kWaitObject0;
    const Deadline end = Deadline::after(timeout);
    const WakeUp* wakeUp = nullptr;
    for (bool hasSlept = false;;) {
        std::uint32_t word = m_word.load(std::memory_order_relaxed);
        const std::uint32_t owner = word & ~kAwaited;
        // The threads that a process has ended at its own end release nothing.
        const bool isOwnerNeeded = !m_recovers && !(hasSlept && isProcessEnding());
        if (owner == 0 || (!isOwnerNeeded && !threadMayRun(owner))) {
            const std::uint32_t mark = wakeUp != nullptr ? kAwaited : word & kAwaited;
            if (tryTake(word, self | mark)) return owner == 0 ? kWaitObject0 : kWaitAbandoned;
            continue;
        }
        if (timeout == 0 || end.hasPassed()) return kWaitTimeout;
        wakeUp = ownWakeUp();
        if (wakeUp != nullptr && (word & kAwaited) == 0 && !m_word.compare_exchange_strong(word, word | kAwaited))
            continue;
        sleep(wakeUp, std::min(end.rest(), kLook));
        hasSlept = true;
    }
}

// Null when memory is short.
OwnerLock::WakeUp* OwnerLock::ownWakeUp() noexcept {
    WakeUp* wakeUp = m_wakeUp.load(std::memory_order_acquire);
    if (wakeUp != nullptr) return wakeUp;
    WakeUp* const taken = pool().take();
    if (taken == nullptr || m_wakeUp.compare_exchange_strong(wakeUp, taken, std::memory_order_acq_rel)) return taken;
    pool().putBack(*taken);
    return wakeUp;
}

void OwnerLock::sleep(const WakeUp* wakeUp, std::uint32_t timeout) noexcept {
    if (wakeUp == nullptr) return sleepThread(1);
    const WaitMark mark;
    WaitForSingleObject(wakeUp->event.get(), timeout);
}

}  // namespace KestSupport::platform
