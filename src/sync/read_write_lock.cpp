// Two kinds of words hold the lock, the slots for readers and the gate for a writer:
//
//   word  high half      bit 31            low bits      released
//   slot  thread         kWanted: a        read levels   kWanted clear: in one step; set: with m_lock held,
//                        thread waits                    which sets the event
//   gate  writer, 0 for  -                 kWaiting:     kWaiting clear: in one step; set: with m_lock held,
//         none                             threads wait  which sets the event
//
// A reader writes its slot and then reads the gate. A writer writes the gate and then reads the slots. Both steps are
// sequentially consistent, so at least one of the two sees the other, and m_lock decides: a reader that found a writer
// leaves its slot again if the writer is still there; a writer that found a reader opens the gate again.
//
// The levels of a thread whose slot belongs to another thread are counted in m_readers.
//
// No thread may sleep forever. While threads wait and m_lock is free, at least one of these is true: the event is set,
// or a thread that it woke is running or was killed; there is a writer, and the gate has kWaiting; m_readers has a
// level; a slot has kWanted. The holder that finds such a mark releases with m_lock held. It then sets the event or,
// when there are other readers, marks their slots.
//
// After the step that releases the lock, a holder without a mark uses no member, and a holder with a mark uses none
// after it has released m_lock. So the next thread that takes the lock may destroy it.
#include "support/read_write_lock.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <new>

#include "platform/deadline.h"
#include "platform/thread_bias.h"
#include "platform/wait.h"
#include "text/log/internal_log.h"

using namespace KestSupport;

namespace {

constexpr std::uint64_t kWanted = std::uint64_t{1} << 31;  // in a slot
constexpr std::uint64_t kLevels = kWanted - 1;             // in a slot
constexpr std::uint64_t kWaiting = 1;                      // in the gate

constexpr std::uint64_t ownedBy(std::uint32_t thread) noexcept {
    return std::uint64_t{thread} << 32;
}
constexpr std::uint32_t ownerOf(std::uint64_t word) noexcept {
    return static_cast<std::uint32_t>(word >> 32);
}

}  // namespace

struct RwLockImplementation::Readers {
    std::map<std::uint32_t, std::uint32_t> levels;  // by thread

    static bool exist(const Readers* readers) noexcept { return readers != nullptr && !readers->levels.empty(); }
};

// Counts a thread as waiting. Constructed and destroyed with m_lock held.
class RwLockImplementation::Waiting {
  public:
    explicit Waiting(RwLockImplementation& lock) noexcept : m_owner(lock) {
        if (m_owner.m_waiting++ == 0) m_owner.m_gate.fetch_or(kWaiting);
    }
    Waiting(const Waiting&) = delete;
    Waiting& operator=(const Waiting&) = delete;
    // This wait may have consumed the only signal, so the current holder must signal the other waiting threads.
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
    delete m_readers;
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
        if (Readers::exist(m_readers)) {
            auto& levels = m_readers->levels;
            if (const auto own = levels.find(thread); own != levels.end()) {
                if (--own->second != 0) return;
                levels.erase(own);
                signalIfFree();
                return;
            }
        }
    }
    internal::logRecord(internal::LogLevel::failure,
                        "KestReadWriteLock::readUnLock: Trying to release readlock without acquiring it");
}

void RwLockImplementation::writeLock() {
    const std::uint32_t thread = platform::lifelongThreadKey();
    KestCriticalSection guard(m_lock, true);
    if (!takeWrite(thread)) waitUntil(guard, platform::kInfinite, [&] { return takeWrite(thread); });
}

bool RwLockImplementation::tryWriteLock() {
    const KestCriticalSection guard(m_lock, true);
    return takeWrite(platform::lifelongThreadKey());
}

bool RwLockImplementation::readLockWithin(std::uint32_t milliseconds) {
    if (tryReadLock()) return true;
    const std::uint32_t thread = platform::lifelongThreadKey();
    KestCriticalSection guard(m_lock, true);
    return waitUntil(guard, milliseconds, [&] { return takeRead(thread); });
}

bool RwLockImplementation::writeLockWithin(std::uint32_t milliseconds) {
    const std::uint32_t thread = platform::lifelongThreadKey();
    KestCriticalSection guard(m_lock, true);
    return takeWrite(thread) || waitUntil(guard, milliseconds, [&] { return takeWrite(thread); });
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
    // Each writer wakes one waiting thread, also when a reader has entered after the gate was opened.
    if (m_waiting != 0) platform::setEvent(m_event);
}

RwLockImplementation::Slot& RwLockImplementation::slotOf(std::uint32_t thread) noexcept {
    // Multiplicative hashing with the golden ratio: ids that differ by one, or by four, get different slots.
    constexpr std::uint32_t kGoldenRatio = 0x9E3779B9;
    static_assert(sizeof m_slots == 8 * sizeof(Slot));
    return m_slots[(thread * kGoldenRatio) >> 29];
}

// Returns true when the level was taken. After false with `entered`, the slot has the level but there was a writer, and
// readSlowly decides.
bool RwLockImplementation::readQuickly(std::uint32_t thread, bool& entered) noexcept {
    std::atomic<std::uint64_t>& slot = slotOf(thread).word;
    std::uint64_t word = 0;
    entered = slot.compare_exchange_strong(word, ownedBy(thread) | 1);
    if (entered) return ownerOf(m_gate.load()) == 0;
    if (ownerOf(word) != thread) return false;
    slot.fetch_add(1, std::memory_order_relaxed);  // a slot with a level keeps writers out
    return true;
}

bool RwLockImplementation::readSlowly(std::uint32_t thread, bool entered, bool mayWait) {
    KestCriticalSection guard(m_lock, true);
    if (entered) {
        if (!writeLocked()) return true;
        slotOf(thread).word.store(0, std::memory_order_release);
    }
    if (takeRead(thread)) return true;
    if (mayWait) waitUntil(guard, platform::kInfinite, [&] { return takeRead(thread); });
    return mayWait;
}

bool RwLockImplementation::writeLocked() const noexcept {
    return ownerOf(m_gate.load(std::memory_order_acquire)) != 0;
}

bool RwLockImplementation::takeRead(std::uint32_t thread) {
    if (writeLocked()) return false;
    std::uint64_t freeSlot = 0;
    if (slotOf(thread).word.compare_exchange_strong(freeSlot, ownedBy(thread) | 1)) return true;
    if (m_readers == nullptr) m_readers = new Readers;
    ++m_readers->levels[thread];
    return true;
}

bool RwLockImplementation::takeWrite(std::uint32_t thread) noexcept {
    if (writeLocked() || Readers::exist(m_readers)) return false;
    const std::uint64_t gate = m_gate.load();
    m_gate.store(ownedBy(thread) | gate);
    if (std::all_of(std::begin(m_slots), std::end(m_slots), [](const Slot& slot) { return slot.word.load() == 0; }))
        return true;
    m_gate.store(gate);
    return false;
}

// Returns true when the current holder will call signalIfFree, because it has the mark; false when the lock is free.
bool RwLockImplementation::holderWillSignal() noexcept {
    if (writeLocked() || Readers::exist(m_readers)) return true;
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

// Waits until `take` succeeds or the time has passed, and returns whether it succeeded. Returns with the guard held. A
// waiting thread may be killed after it has consumed the signal, so the others look regularly whether the lock is free.
template <typename Take>
bool RwLockImplementation::waitUntil(KestCriticalSection& guard, std::uint32_t milliseconds, Take take) {
    constexpr std::uint32_t kLookAgain = 1000;  // milliseconds
    const platform::Deadline deadline = platform::Deadline::after(milliseconds);
    const Waiting waiting(*this);
    while (!take()) {
        if (deadline.hasPassed()) return false;
        bool isSet = false;
        while (!isSet && !deadline.hasPassed() && holderWillSignal()) {
            guard.unlock();
            isSet = platform::waitForOne(m_event, std::min(deadline.rest(), kLookAgain)) == platform::kWaitObject0;
            guard.lock();
        }
    }
    return true;
}

namespace KestSupport {

KestReadWriteLock::KestReadWriteLock() : m_pImpl(new RwLockImplementation) {}
KestReadWriteLock::KestReadWriteLock(const KestReadWriteLock& other) = default;
KestReadWriteLock& KestReadWriteLock::operator=(const KestReadWriteLock& other) = default;
KestReadWriteLock::~KestReadWriteLock() = default;

// These calls are not inline: a program with its own class RwLockImplementation would call that class.
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
bool KestReadWriteLock::readLockWithin(std::uint32_t milliseconds) {
    return m_pImpl->readLockWithin(milliseconds);
}
bool KestReadWriteLock::writeLockWithin(std::uint32_t milliseconds) {
    return m_pImpl->writeLockWithin(milliseconds);
}

}  // namespace KestSupport
