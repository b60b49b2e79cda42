#include "platform/critical_section.h"

#include <new>

#include "platform/windows/windows_api.h"
#include "platform/windows/windows_thread_record.h"

namespace KestSupport::platform {

class CriticalSection {
  public:
    CRITICAL_SECTION section;
};

namespace {

bool isMine(const CRITICAL_SECTION& section) noexcept {
    return static_cast<DWORD>(reinterpret_cast<std::uintptr_t>(section.OwningThread)) == GetCurrentThreadId();
}

}  // namespace

CriticalSection* createCriticalSection() noexcept {
    // A look at a lock that another processor is about to release is cheaper than a sleep.
    constexpr DWORD kSpins = 100;
    if (injectedFault("createCriticalSection") != 0) return nullptr;
    auto* const made = new (std::nothrow) CriticalSection;
    if (made != nullptr && !InitializeCriticalSectionEx(&made->section, kSpins, CRITICAL_SECTION_NO_DEBUG_INFO)) {
        delete made;
        return nullptr;
    }
    return made;
}

void destroyCriticalSection(CriticalSection* section) noexcept {
    if (section == nullptr) return;
    DeleteCriticalSection(&section->section);
    delete section;
}

void enterCriticalSection(CriticalSection& section) noexcept {
    if (TryEnterCriticalSection(&section.section)) return;
    const WaitMark mark;
    EnterCriticalSection(&section.section);
}

bool tryEnterCriticalSection(CriticalSection& section) noexcept {
    return TryEnterCriticalSection(&section.section);
}

void leaveCriticalSection(CriticalSection& section) noexcept {
    if (isMine(section.section)) LeaveCriticalSection(&section.section);
}

std::uint32_t recursionCount(const CriticalSection& section) noexcept {
    return static_cast<std::uint32_t>(section.section.RecursionCount);
}

}  // namespace KestSupport::platform
