// How the lock works. A reader enters its slot and then looks at the gate; a writer closes the gate and then looks at
// the slots. Both steps are sequentially consistent, so at least one of the two sees the other. Whatever is not settled
// by that is settled under m_lock: a reader that entered and found the gate closed keeps its slot, and with it the
// lock, unless there is a writer still; a writer that found a reader opens the gate again.
//
// Nobody may be forgotten asleep. While threads wait, one of these holds whenever m_lock is free: the event is raised
// or a thread that it woke is on its way; there is a writer, and the gate says that threads wait; there is a level in
// m_readers; or there is a slot that is marked as wanted. The holder that sees such a mark lets go under m_lock, where
// it raises the event or, when there are readers left, marks them.
//
// A holder without a mark lets go in one step and touches nothing afterwards; one with a mark touches nothing after it
// has let go of m_lock. So whoever takes the lock next may destroy it.
#include "support/read_write_lock.h"

#include <algorithm>
#include <new>

#include "platform/thread_bias.h"
#include "platform/wait.h"
#include "text/log/internal_log.h"

using namespace KestSupport;

namespace {

constexpr std::uint64_t kWanted = std::uint64_t{1} << 31;  // in a slot; the levels are below it
constexpr std::uint64_t kLevels = kWanted - 1;
constexpr std::uint64_t kWaiting = 1;  // in the gate

constexpr std::uint64_t ownedBy(std::uint32_t thread) noexcept {
    return std::uint64_t{thread} << 32;
}
constexpr std::uint32_t ownerOf(std::uint64_t word) noexcept {
    return static_cast<std::uint32_t>(word >> 32);
}

}  // namespace

// Counts a thread as waiting; made and destroyed with m_lock held.
class RwLockImplementation::Waiting {
  public:
    explicit Waiting(RwLockImplementation& lock) noexcept : m_owner(lock) {
        if (m_owner.m_waiting++ == 0) m_owner.m_gate.fetch_or(kWaiting);
    }
    Waiting(const Waiting&) = delete;
    Waiting& operator=(const Waiting&) = delete;
    // The signal that ended this wait may have been the only one: the others are passed on to the holder of now.
    ~Waiting() {
        if (--m_owner.m_waiting == 0) {
            m_owner.m_gate.fetch_and(~kWaiting);
        } else {
            m_owner.signalIfFree();
        }
    }

  private:
    RwLockImplementation& m_owner;
};

RwLockImplementation::RwLockImplementation() : m_event(platform::createEvent(false, false)) {
    if (m_event == nullptr) throw std::bad_alloc();
}

RwLockImplementation::~RwLockImplementation() {
    platform::closeHandle(m_event);
}

void RwLockImplementation::readLock() {
    const std::uint32_t thread = platform::lifelongThreadKey();
    bool entered = false;
    if (!readQuickly(thread, entered)) readSlowly(thread, entered, true);
}

bool RwLockImplementation::tryReadLock() {
    const std::uint32_t thread = platform::lifelongThreadKey();
    bool entered = false;
    return readQuickly(thread, entered) || readSlowly(thread, entered, false);
}

void RwLockImplementation::readUnLock() {
    const std::uint32_t thread = platform::lifelongThreadKey();
    std::atomic<std::uint64_t>& slot = slotOf(thread).word;
    std::uint64_t word = ownedBy(thread) | 1;
    if (slot.compare_exchange_strong(word, 0, std::memory_order_release, std::memory_order_relaxed)) return;
    if (ownerOf(word) == thread) {
        if ((word & kLevels) > 1) {
            slot.fetch_sub(1, std::memory_order_relaxed);
            return;
        }
        const KestCriticalSection guard(m_lock, true);
        slot.store(0, std::memory_order_release);
        signalIfFree();
        return;
    }
    {
        const KestCriticalSection guard(m_lock, true);
        const auto levels = m_readers.find(thread);
        if (levels != m_readers.end()) {
            if (--levels->second != 0) return;
            m_readers.erase(levels);
            signalIfFree();
            return;
        }
    }
    internal::logRecord(internal::LogLevel::failure,
                        "KestReadWriteLock::readUnLock: Trying to release readlock without acquiring it");
}

void RwLockImplementation::writeLock() {
    const std::uint32_t thread = platform::lifelongThreadKey();
    KestCriticalSection guard(m_lock, true);
    if (!takeWrite(thread)) waitUntil(guard, [&] { return takeWrite(thread); });
}

bool RwLockImplementation::tryWriteLock() {
    const KestCriticalSection guard(m_lock, true);
    return takeWrite(platform::lifelongThreadKey());
}

void RwLockImplementation::writeUnLock() {
    const std::uint32_t thread = platform::lifelongThreadKey();
    std::uint64_t gate = ownedBy(thread);
    if (m_gate.compare_exchange_strong(gate, 0, std::memory_order_release, std::memory_order_relaxed)) return;
    if (ownerOf(gate) != thread) {
        internal::logRecord(internal::LogLevel::failure,
                            "KestReadWriteLock::writeUnLock: Trying to release writelock without acquiring it");
        return;
    }
    const KestCriticalSection guard(m_lock, true);
    m_gate.fetch_and(kWaiting);
    // Also when a reader has entered meanwhile: one of those that wait is woken by each writer.
    if (m_waiting != 0) platform::setEvent(m_event);
}

RwLockImplementation::Slot& RwLockImplementation::slotOf(std::uint32_t thread) noexcept {
    // Multiplicative hashing by the golden ratio: ids that follow each other, by one or by four, spread evenly.
    constexpr std::uint32_t goldenRatio = 0x9E3779B9;
    static_assert(std::tuple_size_v<decltype(m_slots)> == 8);
    return m_slots[(thread * goldenRatio) >> 29];
}

// True when the level was taken. Otherwise entered says whether the slot holds it all the same, and whether that stands
// has to be found out under m_lock.
bool RwLockImplementation::readQuickly(std::uint32_t thread, bool& entered) noexcept {
    std::atomic<std::uint64_t>& slot = slotOf(thread).word;
    std::uint64_t word = 0;
    entered = slot.compare_exchange_strong(word, ownedBy(thread) | 1);
    if (entered) return ownerOf(m_gate.load()) == 0;
    if (ownerOf(word) != thread) return false;
    slot.fetch_add(1, std::memory_order_relaxed);  // while it has a level, there is no writer
    return true;
}

bool RwLockImplementation::readSlowly(std::uint32_t thread, bool entered, bool mayWait) {
    KestCriticalSection guard(m_lock, true);
    if (entered) {
        if (!writeLocked()) return true;
        slotOf(thread).word.store(0, std::memory_order_release);
    }
    if (takeRead(thread)) return true;
    if (mayWait) waitUntil(guard, [&] { return takeRead(thread); });
    return mayWait;
}

bool RwLockImplementation::writeLocked() const noexcept {
    return ownerOf(m_gate.load(std::memory_order_acquire)) != 0;
}

bool RwLockImplementation::takeRead(std::uint32_t thread) {
    if (writeLocked()) return false;
    std::uint64_t nobody = 0;
    if (!slotOf(thread).word.compare_exchange_strong(nobody, ownedBy(thread) | 1)) ++m_readers[thread];
    return true;
}

bool RwLockImplementation::takeWrite(std::uint32_t thread) noexcept {
    if (writeLocked() || !m_readers.empty()) return false;
    const std::uint64_t gate = m_gate.load();
    m_gate.store(ownedBy(thread) | gate);
    if (std::all_of(m_slots.begin(), m_slots.end(), [](const Slot& slot) { return slot.word.load() == 0; }))
        return true;
    m_gate.store(gate);
    return false;
}

// True when whoever holds the lock is certain to come by signalIfFree; false when it is free.
bool RwLockImplementation::holderWillSignal() noexcept {
    if (writeLocked() || !m_readers.empty()) return true;
    bool marked = false;
    for (Slot& slot : m_slots) {
        std::uint64_t word = slot.word.load();
        while (word != 0 && !slot.word.compare_exchange_weak(word, word | kWanted)) {
        }
        marked = marked || word != 0;
    }
    return marked;
}

void RwLockImplementation::signalIfFree() noexcept {
    if (m_waiting != 0 && !holderWillSignal()) platform::setEvent(m_event);
}

// Returns with the guard held and what was asked for taken.
template <typename Take>
void RwLockImplementation::waitUntil(KestCriticalSection& guard, Take take) {
    const Waiting waiting(*this);
    while (!take()) {
        if (!holderWillSignal()) continue;  // the last reader has gone this moment
        guard.unlock();
        platform::waitForOne(m_event, platform::kInfinite);
        guard.lock();
    }
}

namespace KestSupport {

KestReadWriteLock::KestReadWriteLock() : m_pImpl(new RwLockImplementation) {}
KestReadWriteLock::KestReadWriteLock(const KestReadWriteLock& other) = default;
KestReadWriteLock& KestReadWriteLock::operator=(const KestReadWriteLock& other) = default;
KestReadWriteLock::~KestReadWriteLock() = default;

// Not in the header: a program that has a RwLockImplementation of its own would call that one.
void KestReadWriteLock::readLock() {
    m_pImpl->readLock();
}
void KestReadWriteLock::readUnLock() {
    m_pImpl->readUnLock();
}
void KestReadWriteLock::writeLock() {
    m_pImpl->writeLock();
}
void KestReadWriteLock::writeUnLock() {
    m_pImpl->writeUnLock();
}
bool KestReadWriteLock::tryReadLock() {
    return m_pImpl->tryReadLock();
}
bool KestReadWriteLock::tryWriteLock() {
    return m_pImpl->tryWriteLock();
}

}  // namespace KestSupport
