#include "support/producer_consumer.h"

#include <new>
#include <utility>

#include "platform/thread.h"
#include "platform/wait.h"
#include "text/log/internal_log.h"

namespace KestSupport {

struct KestBaseProducerConsumer::Sync {
    platform::OwnedHandle event;
    platform::OwnedHandle mutex;
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
        platform::waitForOne(m_pSync->mutex.get(), platform::kInfinite);
    }
}

void KestBaseProducerConsumer::unlockSyncMutex() {
    if (m_pSync == nullptr) {
        m_queue.getLock().unlock();
    } else {
        platform::releaseMutex(m_pSync->mutex.get());
    }
}

void KestBaseProducerConsumer::setSyncEvent() {
    if (m_pSync != nullptr) platform::setEvent(m_pSync->event.get());
}

void KestBaseProducerConsumer::waitForSyncEvent() {
    if (m_pSync == nullptr) {
        constexpr std::uint32_t kPollEvery = 10;  // milliseconds
        unlockSyncMutex();
        platform::sleepThread(kPollEvery);
        lockSyncMutex();
        return;
    }
    // The event of elements that were taken without a wait. To keep the mutex saves half of the time of the wait.
    if (platform::waitForOne(m_pSync->event.get(), 0) == platform::kWaitObject0) {
        platform::resetEvent(m_pSync->event.get());
        return;
    }
    platform::signalAndWait(m_pSync->mutex.get(), m_pSync->event.get(), platform::kInfinite);
    lockSyncMutex();
    platform::resetEvent(m_pSync->event.get());
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
