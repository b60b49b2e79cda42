#include "support/producer_consumer.h"

#include <atomic>
#include <new>
#include <utility>

#include "platform/thread.h"
#include "platform/uninterrupted.h"
#include "platform/wait.h"
#include "text/log/internal_log.h"

namespace KestSupport {

// If a thread waits for the event, the owner of the mutex sets the event after it has released the mutex. A thread that
// is woken earlier would only wait for the mutex: on one processor a round trip takes 1.8 instead of 3.7 us.
struct KestBaseProducerConsumer::Sync {
    void lock() noexcept { platform::waitForOne(mutex.get(), platform::kInfinite); }
    void unlock() noexcept {
        if (!setsAtUnlock.load(std::memory_order_relaxed) || platform::mutexLevels(mutex.get()) != 1) {
            platform::releaseMutex(mutex.get());
            return;
        }
        const platform::Uninterrupted whole;  // after the release, no other thread knows that the event is due
        setsAtUnlock.store(false, std::memory_order_relaxed);
        platform::releaseMutex(mutex.get());
        platform::setEvent(event.get());
    }
    void set() noexcept {
        if (platform::isAwaited(event.get(), mutex.get())) {
            setsAtUnlock.store(true, std::memory_order_relaxed);
        } else {
            platform::setEvent(event.get());
        }
    }
    void wait() noexcept {
        if (setsAtUnlock.exchange(false, std::memory_order_relaxed)) platform::setEvent(event.get());
        // The event may be that of elements that were taken without a wait. To keep the mutex then saves half of the
        // time.
        if (platform::waitForOne(event.get(), 0) != platform::kWaitObject0) {
            platform::signalAndWait(mutex.get(), event.get(), platform::kInfinite);
            lock();
        }
        platform::resetEvent(event.get());
    }

    const platform::OwnedHandle event;
    const platform::OwnedHandle mutex;
    // Written by the owner of the mutex. If the owner is killed, the next one sets the event.
    std::atomic<bool> setsAtUnlock{false};
};

KestBaseSynchronizedQueue::KestBaseSynchronizedQueue() = default;
KestBaseSynchronizedQueue::~KestBaseSynchronizedQueue() = default;

KestBaseProducerConsumer::KestBaseProducerConsumer(KestBaseSynchronizedQueue& queue) noexcept : m_queue(queue) {
    platform::OwnedHandle mutex(platform::createMutex());
    platform::OwnedHandle event(platform::createEvent(true, false));
    if (mutex == nullptr || event == nullptr) return;
    m_pSync.reset(new (std::nothrow) Sync{std::move(event), std::move(mutex)});
}

KestBaseProducerConsumer::~KestBaseProducerConsumer() = default;

void KestBaseProducerConsumer::lockSyncMutex() {
    if (m_pSync == nullptr) {
        m_queue.getLock().lock();
    } else {
        m_pSync->lock();
    }
}

void KestBaseProducerConsumer::unlockSyncMutex() {
    if (m_pSync == nullptr) {
        m_queue.getLock().unlock();
    } else {
        m_pSync->unlock();
    }
}

void KestBaseProducerConsumer::setSyncEvent() {
    if (m_pSync != nullptr) m_pSync->set();
}

void KestBaseProducerConsumer::waitForSyncEvent() {
    if (m_pSync == nullptr) {
        constexpr std::uint32_t kPollEvery = 10;  // milliseconds
        unlockSyncMutex();
        platform::sleepThread(kPollEvery);
        lockSyncMutex();
        return;
    }
    m_pSync->wait();
}

void KestBaseProducerConsumer::produceSentinel(bool emptyQueue) {
    struct WakeAndUnlock {
        KestBaseProducerConsumer& owner;
        ~WakeAndUnlock() {
            owner.setSyncEvent();
            owner.unlockSyncMutex();
        }
    };
    internal::logRecord(internal::LogLevel::trace, "KestBaseProducerConsumer::produceSentinel: waiting for lock");
    lockSyncMutex();
    if (internal::isLogged(internal::LogLevel::trace)) {
        // Nothing is logged under the mutex, since another thread may produce while its own record is open.
        unlockSyncMutex();
        internal::logRecord(internal::LogLevel::trace, "KestBaseProducerConsumer::produceSentinel: adding sentinel");
        if (emptyQueue)
            internal::logRecord(internal::LogLevel::trace, "KestBaseProducerConsumer::produceSentinel: clearing queue");
        lockSyncMutex();
    }
    const WakeAndUnlock atEnd{*this};
    m_sentinel = true;
    if (emptyQueue) m_queue.clear();
}

}  // namespace KestSupport
