#include "support/lock_factory.h"

#include <map>

#include "platform/uninterrupted.h"
#include "support/exceptions.h"

namespace KestSupport {

template <typename Key, typename Lock>
struct KestLockFactory<Key, Lock>::Locks {
    std::map<Key, Lock> named;
};

template <typename Key, typename Lock>
KestLockFactory<Key, Lock>::KestLockFactory() : m_pLocks(new Locks) {}

template <typename Key, typename Lock>
KestLockFactory<Key, Lock>::KestLockFactory(const KestLockFactory& other) : m_pLocks(new Locks(*other.m_pLocks)) {}

template <typename Key, typename Lock>
KestLockFactory<Key, Lock>& KestLockFactory<Key, Lock>::operator=(const KestLockFactory& other) {
    if (this == &other) return *this;
    Locks locks(*other.m_pLocks);
    const KestCriticalSection guard(m_lock, true);
    const platform::Uninterrupted change;
    m_pLocks->named.swap(locks.named);
    return *this;
}

template <typename Key, typename Lock>
KestLockFactory<Key, Lock>::~KestLockFactory() {
    delete m_pLocks;
}

// The map is changed as a whole: a thread that was killed in between would leave a tree that another thread cannot use.
template <typename Key, typename Lock>
void KestLockFactory<Key, Lock>::createLock(const Key& name) {
    const KestCriticalSection guard(m_lock, true);
    const platform::Uninterrupted change;
    m_pLocks->named.try_emplace(name);
}

template <typename Key, typename Lock>
bool KestLockFactory<Key, Lock>::exists(const Key& name) const {
    const KestCriticalSection guard(m_lock, true);
    return m_pLocks->named.find(name) != m_pLocks->named.end();
}

template <typename Key, typename Lock>
bool KestLockFactory<Key, Lock>::getImpl(const Key& name, Lock*& out) {
    const KestCriticalSection guard(m_lock, true);
    const auto found = m_pLocks->named.find(name);
    if (found == m_pLocks->named.end()) return false;
    out = &found->second;
    return true;
}

template <typename Key, typename Lock>
std::vector<Key> KestLockFactory<Key, Lock>::getRegisteredLockNames() const {
    std::vector<Key> names;
    const KestCriticalSection guard(m_lock, true);
    names.reserve(m_pLocks->named.size());
    for (const auto& entry : m_pLocks->named)
        names.push_back(entry.first);
    return names;
}

template <typename Key, typename Lock>
Lock& KestLockFactory<Key, Lock>::getLock(const Key& name) {
    Lock* found = nullptr;
    if (!getImpl(name, found)) throw KestNoSuchElementException(name);
    return *found;
}

template class KEST_SUPPORT_EXPORT_DEFINED KestLockFactory<std::string, KestCriticalSectionObject>;
template class KEST_SUPPORT_EXPORT_DEFINED KestLockFactory<std::string, KestMutexObject>;
template class KEST_SUPPORT_EXPORT_DEFINED KestLockFactory<std::string, KestReadWriteLock>;

}  // namespace KestSupport
