// Module data: the places where process-wide state is made at load and torn down at unload.
//
//   ModuleData         base of one such place
//   ModuleDataControl  a polymorphic handle for code that manages several of them
//
// The library's own module data does its work from static construction and destruction; a program need not do anything.
// When the library is unloaded, the object factory of the process is deleted first, then the timer manager ends, and
// the lock under which other locks are created goes last; timers that are started after that stay stopped.
//
// Threads: static construction and destruction run on one thread. Nothing here is locked.
#pragma once

#include <cstdint>

#include "support/export.h"

namespace KestSupport {

/// State with a beginning and an end. A disabled one does nothing when it is made or destroyed.
class KEST_SUPPORT_EXPORT ModuleData {
  public:
    explicit ModuleData(bool enabled) noexcept : m_enabled(enabled) {}
    ModuleData(const ModuleData&) = delete;
    ModuleData& operator=(const ModuleData&) = delete;
    virtual ~ModuleData();

    virtual void initialize() = 0;
    virtual void terminate() = 0;

    /// Hooks around the life of a module; they do nothing.
    static void entry() noexcept;
    static void exit() noexcept;

    static ModuleData* m_pHead;  ///< null; nothing of the library changes it

  protected:
    bool m_enabled;
    std::int32_t m_initCount = 0;  ///< how often it was initialised without being torn down
};

class KEST_SUPPORT_EXPORT ModuleDataControl {
  public:
    ModuleDataControl() noexcept = default;
    virtual ~ModuleDataControl();
};

}  // namespace KestSupport
