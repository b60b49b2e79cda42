#include "support/lock_factory.h"

#include "support/exceptions.h"

namespace KestSupport {

template <typename Key, typename Lock>
KestLockFactory<Key, Lock>::KestLockFactory() = default;

template <typename Key, typename Lock>
KestLockFactory<Key, Lock>::KestLockFactory(const KestLockFactory& other) : m_locks(other.m_locks) {}

template <typename Key, typename Lock>
KestLockFactory<Key, Lock>& KestLockFactory<Key, Lock>::operator=(const KestLockFactory& other) {
    if (this == &other) return *this;
    std::map<Key, Lock> locks(other.m_locks);
    const KestCriticalSection guard(m_lock, true);
    m_locks.swap(locks);
    return *this;
}

template <typename Key, typename Lock>
KestLockFactory<Key, Lock>::~KestLockFactory() = default;

template <typename Key, typename Lock>
void KestLockFactory<Key, Lock>::createLock(const Key& name) {
    const KestCriticalSection guard(m_lock, true);
    m_locks.try_emplace(name);
}

template <typename Key, typename Lock>
bool KestLockFactory<Key, Lock>::exists(const Key& name) const {
    const KestCriticalSection guard(m_lock, true);
    return m_locks.find(name) != m_locks.end();
}

template <typename Key, typename Lock>
bool KestLockFactory<Key, Lock>::getImpl(const Key& name, Lock*& out) {
    const KestCriticalSection guard(m_lock, true);
    const auto found = m_locks.find(name);
    if (found == m_locks.end()) return false;
    out = &found->second;
    return true;
}

template <typename Key, typename Lock>
std::vector<Key> KestLockFactory<Key, Lock>::getRegisteredLockNames() const {
    std::vector<Key> names;
    const KestCriticalSection guard(m_lock, true);
    names.reserve(m_locks.size());
    for (const auto& entry : m_locks)
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
