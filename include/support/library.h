// Libraries that a program loads while it runs, and module data: the places where process-wide state is made at load
// and torn down at unload.
//
//   KestLibrary        one load of a library
//   ModuleData         base of a place of process-wide state
//   ModuleDataControl  a polymorphic handle for code that manages several of them
//
// A KestLibrary is usually shared through KestSmartPointer; the last release unloads the library. Nothing that came
// from the library, not even an object of a class that it defines, may be used after that.
//
// The library's own module data does its work from static construction and destruction; a program need not do anything.
// When the library is unloaded, the object factory of the process is deleted first, then the timer manager ends, and
// the lock under which other locks are created goes last; timers that are started after that stay stopped. By then no
// other thread is inside the library or comes back to it, and no object of it is left to be released.
//
// Threads: a KestLibrary that one thread assigns to must not be used by another. Static construction and destruction
// run on one thread. Nothing here is locked.
#pragma once

#include <cstdint>
#include <string>

#include "support/exceptions.h"
#include "support/export.h"
#include "support/object_base.h"

namespace KestSupport {

/// A library from its load to its unload.
class KEST_SUPPORT_EXPORT KestLibrary : public KestObjectBase {
  public:
    /// Loads the library of that path, or of that name along the system's search path; the second argument has no
    /// meaning. The library's own start-up code runs now. Throws KestException (code 0): "KestLibrary::KestLibrary:
    /// failed to load: ", the name, ".  " and the system's text.
    KestLibrary(const std::string& name, bool);

    /// A copy holds a load of its own, of the library that the other one holds, whatever lies at its path by now. Both
    /// throw as the constructor does when the system refuses that; an assignment leaves the object as it was then.
    KestLibrary(const KestLibrary& other);
    KestLibrary& operator=(const KestLibrary& other);
    ~KestLibrary() override;

    /// The address of an exported symbol, by the name that the system knows it by; null when there is none. On Linux
    /// those of the libraries that this one needs are found too.
    void* getProcAddr(const std::string& symbol) const noexcept;

  private:
    std::string m_libraryName;
    void* m_module = nullptr;  // the system's handle
};

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
