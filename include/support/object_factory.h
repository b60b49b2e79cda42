// Creates objects by name.
//
//   KestObjectFactory              names, each with a creator function or a registration object
//   KestObjectFactoryRegistration  an object that creates the objects of one name
//   KestExemplar                   an empty polymorphic base for users' classes; the library does not use it
//
// Threads: any thread may call add, remove and construct. No lock is held while a creator runs, so it may use the
// factory. getRegisteredClasses, copying and assignment take no lock: until they return, no thread changes that
// factory. Call getGlobalInstance once before threads use it, and deleteGlobalInstance after they have ended.
#pragma once

#include <string>
#include <vector>

#include "support/export.h"
#include "support/locks.h"
#include "support/object_base.h"

namespace KestSupport {

/// An empty polymorphic base; the library does not use it.
class KEST_SUPPORT_EXPORT KestExemplar {
  public:
    KestExemplar() noexcept = default;
    KestExemplar(const KestExemplar&) noexcept = default;
    KestExemplar& operator=(const KestExemplar&) noexcept = default;
    virtual ~KestExemplar();
};

/// Creates the objects of one name. Factories keep its address and do not own it, so it must outlive its entries.
class KEST_SUPPORT_EXPORT KestObjectFactoryRegistration {
  public:
    KestObjectFactoryRegistration() noexcept = default;
    KestObjectFactoryRegistration(const KestObjectFactoryRegistration&) noexcept = default;
    KestObjectFactoryRegistration& operator=(const KestObjectFactoryRegistration&) noexcept = default;
    virtual ~KestObjectFactoryRegistration();

    /// Returns a new object, or null.
    virtual KestSmartPointer<KestObjectBase> create() = 0;
};

/// Names are compared byte by byte, so case matters. A name may have both a function and a registration; then the
/// registration is used.
class KEST_SUPPORT_EXPORT KestObjectFactory {
  public:
    /// Returns a new object with the count 0, or null.
    using Creator = KestObjectBase* (*)();

    KestObjectFactory();
    /// Copies the functions of the source and none of its registrations.
    KestObjectFactory(const KestObjectFactory& other);
    /// Replaces the functions by those of the source. The registrations of this factory stay.
    KestObjectFactory& operator=(const KestObjectFactory& other);
    virtual ~KestObjectFactory();

    /// Sets the function of the name.
    void add(const std::string& name, Creator creator);
    /// Sets the registration of the name.
    void add(const std::string& name, KestObjectFactoryRegistration& registration);
    /// Removes the registration of the name, or its function if it has no registration.
    void remove(const std::string& name);
    /// Returns the object that the registration or the function of the name creates; null for an unknown name. The
    /// caller gets what they throw.
    KestSmartPointer<KestObjectBase> construct(const std::string& name);
    /// Returns the names with a function in ascending order, then the names with a registration in ascending order. A
    /// name with both is in both parts.
    std::vector<std::string> getRegisteredClasses() const;

    /// Returns the factory of the process, and creates it when there is none.
    static KestObjectFactory& getGlobalInstance();
    /// Deletes the factory of the process; the next getGlobalInstance creates an empty one. The library calls this when
    /// it is unloaded.
    static void deleteGlobalInstance();

  private:
    struct Entries;
    KestCriticalSectionObject m_lock;  // guards the entries in add, remove and construct
    Entries* m_pEntries;               // owned, never null

    static KestObjectFactory* m_pGlobalInstance;
};

}  // namespace KestSupport
