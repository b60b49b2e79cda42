// A recursive lock of one process that cannot be waited on together with other objects. A thread that ends while it
// holds one leaves it locked for good. Taking a free one, or one that the thread holds, never enters the kernel.
#pragma once

#include <cstdint>

namespace KestSupport::platform {

class CriticalSection;

/// A new critical section; null when memory is short. Its owner gives it back with destroyCriticalSection.
CriticalSection* createCriticalSection() noexcept;
/// Nobody holds it or waits for it. Null is ignored.
void destroyCriticalSection(CriticalSection* section) noexcept;
/// Blocks without limit while another thread holds it.
void enterCriticalSection(CriticalSection& section) noexcept;
/// Never waits. True when it was taken.
bool tryEnterCriticalSection(CriticalSection& section) noexcept;
/// Releases one level. Called by a thread that does not hold it, it changes nothing.
void leaveCriticalSection(CriticalSection& section) noexcept;
/// Levels that the owner holds, 0 when it is free.
std::uint32_t recursionCount(const CriticalSection& section) noexcept;

}  // namespace KestSupport::platform
