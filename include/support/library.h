// Dynamically loaded libraries, and module data: classes that create process-wide state at load and delete it at
// unload.
//
//   KestLibrary        one load of a library
//   ModuleData         base of a class with process-wide state
//   ModuleDataControl  a polymorphic handle for code that manages several of them
//
// A KestLibrary is usually shared through KestSmartPointer; the last release unloads the library. After that nothing of
// the library may be used, including objects of its classes.
//
// The module data of this library works by static construction and destruction; a program need not do anything. At
// unload it deletes the object factory of the process, then the timer manager. A timer that is started after that stays
// stopped. Before the unload all other threads must have left the library, and all its objects must be released.
//
// Threads: while one thread assigns to a KestLibrary, no other may use it. Static construction and destruction run on
// one thread. The classes use no locks.
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
    /// Loads the library of that path, or of that name along the system's search path, and runs its start-up code. The
    /// second argument is not used. Throws KestException (code 0): "KestLibrary::KestLibrary: failed to load: ", the
    /// name, ".  " and the system's text.
    KestLibrary(const std::string& name, bool);

    /// A copy loads the same library again, even if its path now leads to another file. Both throw as the constructor
    /// does; a failed assignment does not change the object.
    KestLibrary(const KestLibrary& other);
    KestLibrary& operator=(const KestLibrary& other);
    ~KestLibrary() override;

    /// Returns the address of an exported symbol, by its name in the system's symbol table; null when it does not
    /// exist. On Linux the symbols of the libraries that this one needs are found too.
    void* getProcAddr(const std::string& symbol) const noexcept;

  private:
    std::string m_libraryName;
    void* m_module = nullptr;  // the system's handle
};

/// State that is created and deleted. A disabled object does nothing at construction and destruction.
class KEST_SUPPORT_EXPORT ModuleData {
  public:
    /// With false, construction and destruction do nothing.
    explicit ModuleData(bool enabled) noexcept : m_enabled(enabled) {}
    ModuleData(const ModuleData&) = delete;
    ModuleData& operator=(const ModuleData&) = delete;
    virtual ~ModuleData();

    /// Create and delete the state. The derived class calls them.
    virtual void initialize() = 0;
    virtual void terminate() = 0;

    /// Hooks for the load and unload of a module. They do nothing.
    static void entry() noexcept;
    static void exit() noexcept;

    static ModuleData* m_pHead;  ///< null; the library does not change it

  protected:
    bool m_enabled;                ///< the argument of the constructor
    std::int32_t m_initCount = 0;  ///< the number of initialisations minus the number of terminations
};

/// A base without members of its own.
class KEST_SUPPORT_EXPORT ModuleDataControl {
  public:
    ModuleDataControl() noexcept = default;
    virtual ~ModuleDataControl();
};

}  // namespace KestSupport
