#include "support/locks.h"

#include <memory>
#include <new>

#include "platform/critical_section.h"
#include "platform/wait.h"
#include "sync/reference_count_lock.h"

using namespace KestSupport;

LockBase::~LockBase() = default;

// The owners of lock implementations do not count from two threads at once, so these need no locked instruction.
unsigned long LockBase::addRef() {
    const auto count = m_refCount.load(std::memory_order_relaxed) + 1;
    m_refCount.store(count, std::memory_order_relaxed);
    return count;
}

unsigned long LockBase::release() {
    const auto count = m_refCount.load(std::memory_order_relaxed) - 1;
    m_refCount.store(count, std::memory_order_relaxed);
    if (count == 0) delete this;
    return count;
}

LockImplementation::LockImplementation(bool isCriticalSection) : m_isCriticalSection(isCriticalSection) {
    if (isCriticalSection) {
        m_criticalSection = platform::createCriticalSection();
    } else {
        m_mutex = platform::createMutex();
    }
    // A lock that excludes nobody would do harm far from here.
    if (m_criticalSection == nullptr && m_mutex == nullptr) throw std::bad_alloc();
}

LockImplementation::~LockImplementation() {
    if (m_isCriticalSection) {
        platform::destroyCriticalSection(m_criticalSection);
        return;
    }
    unwind();
    platform::closeHandle(m_mutex);
}

void LockImplementation::lock() {
    if (m_isCriticalSection) {
        platform::enterCriticalSection(*m_criticalSection);
        return;
    }
    // An ended owner's levels are gone with it.
    const bool abandoned = platform::waitForOne(m_mutex, platform::kInfinite) == platform::kWaitAbandoned;
    m_lockCount.store(abandoned ? 1 : m_lockCount.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
}

void LockImplementation::unlock() {
    if (m_isCriticalSection) {
        platform::leaveCriticalSection(*m_criticalSection);
        return;
    }
    m_lockCount.store(m_lockCount.load(std::memory_order_relaxed) - 1, std::memory_order_relaxed);
    platform::releaseMutex(m_mutex);
}

bool LockImplementation::testAndSet() {
    constexpr std::uint32_t kMutexTimeout = 100;
    if (m_isCriticalSection) return platform::tryEnterCriticalSection(*m_criticalSection);
    const std::uint32_t result = platform::waitForOne(m_mutex, kMutexTimeout);
    if (result == platform::kWaitAbandoned) {
        // False means that the caller does not hold the lock, so the ownership that came with the news goes back.
        m_lockCount.store(0, std::memory_order_relaxed);
        platform::releaseMutex(m_mutex);
    }
    if (result != platform::kWaitObject0) return false;
    m_lockCount.store(m_lockCount.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    return true;
}

void LockImplementation::unwind() {
    if (!testAndSet()) return;
    if (m_isCriticalSection) {
        // After the last level the section may be another thread's, so the levels are counted before.
        for (std::uint32_t levels = platform::recursionCount(*m_criticalSection); levels > 0; --levels) {
            platform::leaveCriticalSection(*m_criticalSection);
        }
        return;
    }
    for (std::uint32_t levels = m_lockCount.load(std::memory_order_relaxed); levels > 0; --levels) {
        m_lockCount.store(levels - 1, std::memory_order_relaxed);
        if (!platform::releaseMutex(m_mutex)) return;
    }
}

int LockImplementation::lockCount() const {
    return static_cast<int>(m_isCriticalSection ? platform::recursionCount(*m_criticalSection)
                                                : m_lockCount.load(std::memory_order_relaxed));
}

namespace KestSupport {

KestCriticalSectionObject::KestCriticalSectionObject(const KestCriticalSectionObject& other)
    : m_isCriticalSection(other.m_isCriticalSection) {
    shareFrom(other);
}

KestCriticalSectionObject& KestCriticalSectionObject::operator=(const KestCriticalSectionObject& other) {
    if (this == &other) return *this;
    delete m_pImpl.exchange(nullptr, std::memory_order_acq_rel);
    m_isCriticalSection = other.m_isCriticalSection;
    shareFrom(other);
    return *this;
}

KestCriticalSectionObject::~KestCriticalSectionObject() {
    delete m_pImpl.load(std::memory_order_acquire);
}

void KestCriticalSectionObject::shareFrom(const KestCriticalSectionObject& other) {
    const auto* const source = other.m_pImpl.load(std::memory_order_acquire);
    if (source == nullptr) return;
    m_pImpl.store(new KestSmartPointer<LockImplementation>(*source), std::memory_order_release);
}

inline LockImplementation& KestCriticalSectionObject::implementation() {
    const auto* const implementation = m_pImpl.load(std::memory_order_acquire);
    return implementation != nullptr ? **implementation : create();
}

LockImplementation& KestCriticalSectionObject::create() {
    KestCriticalSectionObject* const creationLock = internal::referenceCountLock();
    const auto makeOwn = [this]() -> LockImplementation& {
        auto* implementation = m_pImpl.load(std::memory_order_acquire);
        if (implementation != nullptr) return **implementation;
        const KestSmartPointer<LockImplementation> fresh(new LockImplementation(m_isCriticalSection));
        auto own = std::make_unique<KestSmartPointer<LockImplementation>>(fresh);
        if (!m_pImpl.compare_exchange_strong(implementation, own.get(), std::memory_order_acq_rel)) {
            return **implementation;
        }
        return **own.release();
    };
    // The implementation of the creation lock itself is made without a lock, perhaps by several threads at once, of
    // which one prevails. There is no such lock while the process has one thread only, before main and after it.
    if (creationLock == nullptr || creationLock == this) return makeOwn();
    const KestCriticalSection guard(*creationLock, true);
    return makeOwn();
}

void KestCriticalSectionObject::lock() {
    implementation().lock();
}
void KestCriticalSectionObject::unlock() {
    implementation().unlock();
}
bool KestCriticalSectionObject::testAndSet() {
    return implementation().testAndSet();
}
void KestCriticalSectionObject::unwind() {
    implementation().unwind();
}
int KestCriticalSectionObject::lockCount() {
    return implementation().lockCount();
}

}  // namespace KestSupport
