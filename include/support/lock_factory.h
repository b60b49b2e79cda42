// Locks kept under names, so that components that know only a name find the same lock.
//
// A name is made usable with createLock, which may be repeated, and its lock is then got with getLock or getImpl and
// used directly. There is no way to remove a name. With std::string keys, names are ordered byte by byte, and case
// matters.
//
// Threads: every operation but copying and assignment may be called by any thread. Those two read the source without
// its lock: nobody may change the source meanwhile, nor, with the two recursive locks, use a lock of it. The factory's
// own lock is held only while the map is read or changed, never while a named lock is used.
//
// Lifetime: a named lock stays at its place until the factory is destroyed or assigned over; nobody may hold or use it
// then.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "support/exceptions.h"
#include "support/export.h"
#include "support/locks.h"
#include "support/read_write_lock.h"

namespace KestSupport {

/// Made for std::string keys and each of the three kinds of lock.
template <typename Key, typename Lock>
class KEST_SUPPORT_EXPORT KestLockFactory {
  public:
    /// No names.
    KestLockFactory();
    /// The names of the source, each with a copy of its lock: a KestReadWriteLock is the same lock as the source's; the
    /// others are so if they had been used before.
    KestLockFactory(const KestLockFactory& other);
    /// As the copy constructor; the names and locks of before are gone.
    KestLockFactory& operator=(const KestLockFactory& other);
    virtual ~KestLockFactory();

    /// Makes a lock under the name. A name that has one keeps it.
    void createLock(const Key& name);
    /// Whether the name has a lock.
    bool exists(const Key& name) const;
    /// Sets out to the address of the name's lock; false, with out unchanged, when it has none.
    bool getImpl(const Key& name, Lock*& out);
    /// All names, in ascending order.
    std::vector<Key> getRegisteredLockNames() const;
    /// The name's lock. Throws KestNoSuchElementException ("KestNoSuchElementException - " and the name) when it has
    /// none.
    Lock& getLock(const Key& name);

  private:
    std::map<Key, Lock> m_locks;               // guarded by m_lock
    mutable KestCriticalSectionObject m_lock;  // nobody else's code runs under it
};

extern template class KEST_SUPPORT_EXPORT KestLockFactory<std::string, KestCriticalSectionObject>;
extern template class KEST_SUPPORT_EXPORT KestLockFactory<std::string, KestMutexObject>;
extern template class KEST_SUPPORT_EXPORT KestLockFactory<std::string, KestReadWriteLock>;

}  // namespace KestSupport
