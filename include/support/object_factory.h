// Objects by name: a factory makes them through what was registered under the name.
//
//   KestObjectFactory              names with a creator function or a registration object
//   KestObjectFactoryRegistration  one that makes objects for a factory
//   KestExemplar                   an empty polymorphic base for users' classes; the library has no use for it
//
// Threads: add, remove and construct may be called from any thread, and no lock is held while a creator runs, so it may
// use the factory itself. getRegisteredClasses, copying and assignment take no lock: nobody changes that factory
// meanwhile. The first getGlobalInstance comes before the threads that use it, deleteGlobalInstance after they ended.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "support/export.h"
#include "support/locks.h"
#include "support/object_base.h"

namespace KestSupport {

class KEST_SUPPORT_EXPORT KestExemplar {
  public:
    KestExemplar() noexcept = default;
    KestExemplar(const KestExemplar&) noexcept = default;
    KestExemplar& operator=(const KestExemplar&) noexcept = default;
    virtual ~KestExemplar();
};

/// Makes the objects of one name. Factories keep its address and never own it: it outlives its entries.
class KEST_SUPPORT_EXPORT KestObjectFactoryRegistration {
  public:
    KestObjectFactoryRegistration() noexcept = default;
    KestObjectFactoryRegistration(const KestObjectFactoryRegistration&) noexcept = default;
    KestObjectFactoryRegistration& operator=(const KestObjectFactoryRegistration&) noexcept = default;
    virtual ~KestObjectFactoryRegistration();

    virtual KestSmartPointer<KestObjectBase> create() = 0;
};

/// Names are told apart byte by byte, case included. A name may have a function and a registration; the registration is
/// the one that is used.
class KEST_SUPPORT_EXPORT KestObjectFactory {
  public:
    /// Returns a new object with no holder, or null.
    using Creator = KestObjectBase* (*)();

    KestObjectFactory() = default;
    /// Knows the functions of its source and none of its registrations.
    KestObjectFactory(const KestObjectFactory& other);
    /// Takes over the functions; the registrations stay as they are.
    KestObjectFactory& operator=(const KestObjectFactory& other);
    virtual ~KestObjectFactory();

    /// Replaces an earlier function of that name.
    void add(const std::string& name, Creator creator);
    /// Replaces an earlier registration of that name.
    void add(const std::string& name, KestObjectFactoryRegistration& registration);
    /// Forgets the registration of that name, or its function if it has no registration.
    void remove(const std::string& name);
    /// What the registration or the function of that name makes; null for an unknown name. What they throw passes
    /// through.
    KestSmartPointer<KestObjectBase> construct(const std::string& name);
    /// The names that have a function in their order, then those that have a registration; a name with both comes
    /// twice.
    std::vector<std::string> getRegisteredClasses() const;

    /// The factory of the process, made when there is none.
    static KestObjectFactory& getGlobalInstance();
    /// Deletes it; the next getGlobalInstance makes another, which is empty. The library's unload calls this.
    static void deleteGlobalInstance();

  private:
    KestCriticalSectionObject m_lock;  // guards both maps in add, remove and construct
    std::map<std::string, Creator> m_creators;
    std::map<std::string, KestObjectFactoryRegistration*> m_registrations;

    static KestObjectFactory* m_pGlobalInstance;
};

}  // namespace KestSupport
