// Critical sections on a futex word: 0 free, 1 taken, 2 taken with threads asleep.
#include "platform/critical_section.h"

#include <new>

#include "platform/common/fault_seam.h"
#include "platform/linux/linux_wait_object.h"

namespace KestSupport::platform {

class CriticalSection {
  public:
    FutexWord state{0};
    std::atomic<std::uint32_t> owner{0};  // written by the owner only; others only compare it with their own id
    std::atomic<std::uint32_t> depth{0};  // written by the owner only
};

namespace {

constexpr int kSpins = 100;

bool tryTake(CriticalSection& section) noexcept {
    std::uint32_t expected = 0;
    return section.state.compare_exchange_strong(expected, 1, std::memory_order_acquire, std::memory_order_relaxed);
}

bool takeSpinning(CriticalSection& section) noexcept {
    if (tryTake(section)) return true;
    for (int spins = spinningPays() ? kSpins : 0; spins > 0; --spins) {
        spinPause();
        if (section.state.load(std::memory_order_relaxed) == 0 && tryTake(section)) return true;
    }
    return false;
}

bool reenter(CriticalSection& section, std::uint32_t self) noexcept {
    if (section.owner.load(std::memory_order_relaxed) != self) return false;
    section.depth.store(section.depth.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    return true;
}

void own(CriticalSection& section, std::uint32_t self) noexcept {
    section.owner.store(self, std::memory_order_relaxed);
    section.depth.store(1, std::memory_order_relaxed);
}

}  // namespace

CriticalSection* createCriticalSection() noexcept {
    if (injectedFault("createCriticalSection") != 0) return nullptr;
    return new (std::nothrow) CriticalSection;
}

void destroyCriticalSection(CriticalSection* section) noexcept {
    delete section;
}

void enterCriticalSection(CriticalSection& section) noexcept {
    const std::uint32_t self = currentRecord().id;
    if (reenter(section, self)) return;
    if (!takeSpinning(section)) {
        while (section.state.exchange(2, std::memory_order_acquire) != 0)
            futexWait(section.state, 2);
    }
    own(section, self);
}

bool tryEnterCriticalSection(CriticalSection& section) noexcept {
    const std::uint32_t self = currentRecord().id;
    if (reenter(section, self)) return true;
    if (!tryTake(section)) return false;
    own(section, self);
    return true;
}

void leaveCriticalSection(CriticalSection& section) noexcept {
    if (section.owner.load(std::memory_order_relaxed) != currentRecord().id) return;
    const std::uint32_t depth = section.depth.load(std::memory_order_relaxed) - 1;
    section.depth.store(depth, std::memory_order_relaxed);
    if (depth != 0) return;
    section.owner.store(0, std::memory_order_relaxed);
    if (section.state.exchange(0, std::memory_order_release) == 2) futexWake(&section.state, 1);
}

std::uint32_t recursionCount(const CriticalSection& section) noexcept {
    return section.depth.load(std::memory_order_relaxed);
}

}  // namespace KestSupport::platform
