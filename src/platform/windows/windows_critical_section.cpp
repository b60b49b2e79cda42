#include "platform/critical_section.h"

#include <new>

#include "platform/wait.h"
#include "platform/windows/windows_owner_lock.h"

namespace KestSupport::platform {

class CriticalSection {
  public:
    OwnerLock lock{false};
};

CriticalSection* createCriticalSection() noexcept {
    if (injectedFault("createCriticalSection") != 0) return nullptr;
    return new (std::nothrow) CriticalSection;
}

void destroyCriticalSection(CriticalSection* section) noexcept {
    delete section;
}

void enterCriticalSection(CriticalSection& section) noexcept {
    section.lock.enter(kInfinite);
}

bool tryEnterCriticalSection(CriticalSection& section) noexcept {
    return section.lock.enter(0) == kWaitObject0;
}

void leaveCriticalSection(CriticalSection& section) noexcept {
    section.lock.leave();
}

std::uint32_t recursionCount(const CriticalSection& section) noexcept {
    return section.lock.levels();
}

}  // namespace KestSupport::platform
