// Whether a suspended thread may be ended where it stands.
//
// A thread that holds a lock of the heap, of the loader or of the C runtime, or that is in the queue of one, is inside
// the code of these libraries. So it may be ended where its next instruction belongs to the program, unless the loader
// has called the program, and where it is inside a system call that the program has made, directly or through libraries
// that hold no such lock. The system undoes such a call.
#pragma once

#include "platform/windows/windows_api.h"

namespace KestSupport::platform {

/// Made before a thread is suspended, since a suspended thread may hold the lock of the loader.
class RuntimeLocks {
  public:
    RuntimeLocks() noexcept;

    /// Whether a suspended thread holds none of the locks and waits for none. Changes the thread's context.
    bool areFreeOf(CONTEXT& context) const noexcept;

  private:
    enum class Code { program, helper, locking };
    struct Place {
        std::uintptr_t module = 0;
        Code code = Code::locking;
    };
    static constexpr std::size_t kModules = 11;

    Place placeOf(std::uintptr_t address) const noexcept;
    bool areFreeInCall(Place place, CONTEXT& context) const noexcept;
    bool isLoaderFree() const noexcept;

    Place m_modules[kModules];  // the first one is ntdll
    FARPROC m_lockLoader = nullptr;
    FARPROC m_unlockLoader = nullptr;
};

}  // namespace KestSupport::platform
