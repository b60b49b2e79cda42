#include "support/locks.h"

#include <memory>
#include <new>

#include "platform/critical_section.h"
#include "platform/deadline.h"
#include "platform/thread.h"
#include "platform/wait.h"

using namespace KestSupport;

LockBase::~LockBase() = default;

// The lock objects that share an implementation are not copied or destroyed in two threads at once, so the count needs
// no locked instruction.
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
        m_mutex = platform::createLock();
    }
    // A lock that excludes no thread would cause damage in other places.
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
    platform::waitForOne(m_mutex, platform::kInfinite);
}

void LockImplementation::unlock() {
    if (m_isCriticalSection) {
        platform::leaveCriticalSection(*m_criticalSection);
        return;
    }
    platform::releaseMutex(m_mutex);
}

bool LockImplementation::testAndSet() {
    constexpr std::uint32_t kMutexTimeout = 100;
    if (m_isCriticalSection) return platform::tryEnterCriticalSection(*m_criticalSection);
    const std::uint32_t result = platform::waitForOne(m_mutex, kMutexTimeout);
    // Returns false, so release the ownership that the abandoned wait gave us.
    if (result == platform::kWaitAbandoned) platform::releaseMutex(m_mutex);
    return result == platform::kWaitObject0;
}

bool LockImplementation::lockWithin(std::uint32_t milliseconds) {
    if (!m_isCriticalSection) {
        const std::uint32_t result = platform::waitForOne(m_mutex, milliseconds);
        return result == platform::kWaitObject0 || result == platform::kWaitAbandoned;
    }
    const platform::Deadline deadline = platform::Deadline::after(milliseconds);
    while (!platform::tryEnterCriticalSection(*m_criticalSection)) {
        if (deadline.hasPassed()) return false;
        platform::sleepThread(1);
    }
    return true;
}

void LockImplementation::unwind() {
    if (!testAndSet()) return;
    if (m_isCriticalSection) {
        // After the last release another thread may own the section, so the levels are counted first.
        for (std::uint32_t levels = platform::recursionCount(*m_criticalSection); levels > 0; --levels) {
            platform::leaveCriticalSection(*m_criticalSection);
        }
        return;
    }
    for (std::uint32_t levels = platform::mutexLevels(m_mutex); levels > 0; --levels)
        platform::releaseMutex(m_mutex);
}

int LockImplementation::lockCount() const {
    return static_cast<int>(m_isCriticalSection ? platform::recursionCount(*m_criticalSection)
                                                : platform::mutexLevels(m_mutex));
}

namespace KestSupport {

KestCriticalSectionObject::KestCriticalSectionObject(const KestCriticalSectionObject& other)
    : m_isCriticalSection(other.m_isCriticalSection) {
    shareFrom(other);
}

KestCriticalSectionObject& KestCriticalSectionObject::operator=(const KestCriticalSectionObject& other) {
    if (this == &other) return *this;
    KestCriticalSectionObject shared(other);  // without memory, nothing is changed
    delete m_pImpl.exchange(shared.m_pImpl.exchange(nullptr), std::memory_order_acq_rel);
    m_isCriticalSection = other.m_isCriticalSection;
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

// No lock guards the creation: such a lock would need a creation too, and would have to exist as long as the last
// thread. Several threads may create an implementation; the first one stores it, and the others destroy theirs and use
// that one.
LockImplementation& KestCriticalSectionObject::create() {
    const KestSmartPointer<LockImplementation> fresh(new LockImplementation(m_isCriticalSection));
    auto own = std::make_unique<KestSmartPointer<LockImplementation>>(fresh);
    KestSmartPointer<LockImplementation>* first = nullptr;
    if (!m_pImpl.compare_exchange_strong(first, own.get(), std::memory_order_acq_rel, std::memory_order_acquire)) {
        return **first;
    }
    return **own.release();
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
bool KestCriticalSectionObject::lockWithin(std::uint32_t milliseconds) {
    return implementation().lockWithin(milliseconds);
}
void KestCriticalSectionObject::unwind() {
    implementation().unwind();
}
int KestCriticalSectionObject::lockCount() {
    return implementation().lockCount();
}

}  // namespace KestSupport
