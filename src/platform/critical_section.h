// A recursive lock of one process that cannot be waited on together with other objects. If a thread ends while it holds
// the lock, the lock stays locked. Entering a section that is free, or that the calling thread holds, never enters the
// kernel.
#pragma once

#include <cstdint>

namespace KestSupport::platform {

class CriticalSection;

/// Returns a new critical section, or null if memory is short. The caller frees it with destroyCriticalSection.
CriticalSection* createCriticalSection() noexcept;
/// Requires that no thread holds the section or waits for it. Ignores null.
void destroyCriticalSection(CriticalSection* section) noexcept;
/// Blocks without limit while another thread holds the section.
void enterCriticalSection(CriticalSection& section) noexcept;
/// Returns whether the section was entered. Never waits.
bool tryEnterCriticalSection(CriticalSection& section) noexcept;
/// Releases one level. Does nothing if the calling thread does not hold the section.
void leaveCriticalSection(CriticalSection& section) noexcept;
/// Returns how many levels the owner holds, 0 if the section is free.
std::uint32_t recursionCount(const CriticalSection& section) noexcept;

}  // namespace KestSupport::platform
