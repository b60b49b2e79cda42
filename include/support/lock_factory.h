// Locks kept under names, so that components that know only a name use the same lock.
//
//   factory.createLock("catalogue");                                    // may be repeated
//   const KestCriticalSection guard(factory.getLock("catalogue"), true);
//
// A name cannot be removed. Names of type std::string are ordered byte by byte, and case matters.
//
// Threads: any thread may call every operation except copying and assignment. Those two read the source without its
// lock: until they return, no thread changes the source and, with the two recursive locks, no thread uses one of its
// locks. The factory's own lock is held only while the map is read or changed, never while a named lock is used.
//
// Lifetime: the address of a named lock is valid until the factory is destroyed or assigned to. At that time no thread
// holds or uses the lock.
#pragma once

#include <string>
#include <vector>

#include "support/exceptions.h"
#include "support/export.h"
#include "support/locks.h"
#include "support/read_write_lock.h"

namespace KestSupport {

/// Instantiated for std::string keys and each of the three kinds of lock. Throws std::bad_alloc when memory is short,
/// and the failed call changes nothing.
template <typename Key, typename Lock>
class KEST_SUPPORT_EXPORT_TEMPLATE KestLockFactory {
  public:
    /// Creates a factory without names.
    KestLockFactory();
    /// Copies the names, each with a copy of its lock. The copy of a KestReadWriteLock is always the same lock; the
    /// copy of another kind is the same lock only if the source's was used before.
    KestLockFactory(const KestLockFactory& other);
    /// Destroys the names and locks of this factory, and copies those of the source as the copy constructor does.
    KestLockFactory& operator=(const KestLockFactory& other);
    virtual ~KestLockFactory();

    /// Creates a lock under the name. A name that has a lock keeps it.
    void createLock(const Key& name);
    /// Returns whether the name has a lock.
    bool exists(const Key& name) const;
    /// Sets `out` to the address of the name's lock, which the factory owns. Returns false, and leaves `out` unchanged,
    /// when the name has none.
    bool getImpl(const Key& name, Lock*& out);
    /// Returns all names in ascending order.
    std::vector<Key> getRegisteredLockNames() const;
    /// Returns the name's lock. Throws KestNoSuchElementException ("KestNoSuchElementException - " and the name) when
    /// the name has none.
    Lock& getLock(const Key& name);

  private:
    struct Locks;
    Locks* m_pLocks;                           // owned, never null; guarded by m_lock
    mutable KestCriticalSectionObject m_lock;  // held for the map only
};

extern template class KEST_SUPPORT_EXPORT_DECLARED KestLockFactory<std::string, KestCriticalSectionObject>;
extern template class KEST_SUPPORT_EXPORT_DECLARED KestLockFactory<std::string, KestMutexObject>;
extern template class KEST_SUPPORT_EXPORT_DECLARED KestLockFactory<std::string, KestReadWriteLock>;

}  // namespace KestSupport
