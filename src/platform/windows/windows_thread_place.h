// Whether a suspended thread may be ended where it stands.
//
// A thread that holds a lock of the heap, of the loader or of the C runtime, or that is in the queue of one, is inside
// the code of these libraries. So it may be ended where its next instruction belongs to the program, unless the loader
// has called the program, and where it is inside a system call that the program has made, directly or through libraries
// that hold no such lock. The system undoes such a call. Wine does not: it runs the call inside the process, where it
// may hold locks for a moment. Libraries between the program and the call may do so too. So a call that is no wait has
// to last before it counts. Our own calls that a thread makes often have a mark instead (windows_thread_record.h).
#pragma once

#include "platform/windows/windows_api.h"

namespace KestSupport::platform {

/// Made before a thread is suspended, since a suspended thread may hold the lock of the loader.
class RuntimeLocks {
  public:
    RuntimeLocks() noexcept;

    enum class Use { possible, noneIfCallLasts, none };
    /// Whether a suspended thread with this context holds or awaits one of the locks.
    Use useBy(CONTEXT context) const noexcept;

  private:
    enum class Code { program, helper, locking };
    struct Place {
        std::uintptr_t module = 0;
        Code code = Code::locking;
    };
    static constexpr std::size_t kModules = 11;
    static constexpr std::size_t kWaits = 5;

    Place placeOf(std::uintptr_t address) const noexcept;
    bool isCallOfProgram(Place place, CONTEXT& context) const noexcept;
    bool isWait(std::uintptr_t next) const noexcept;
    bool isLoaderFree() const noexcept;

    Place m_modules[kModules];  // the first one is ntdll
    std::uintptr_t m_waits[kWaits];
    // No header declares them.
    using LockLoader = LONG(WINAPI*)(ULONG flags, ULONG* result, ULONG_PTR* cookie);
    using UnlockLoader = LONG(WINAPI*)(ULONG flags, ULONG_PTR cookie);
    LockLoader m_lockLoader = nullptr;
    UnlockLoader m_unlockLoader = nullptr;
};

}  // namespace KestSupport::platform
