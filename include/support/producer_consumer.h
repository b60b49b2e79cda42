// Bases for a queue that producer and consumer threads share.
//
//   KestBaseSynchronizedQueue  base of a typed queue: its lock, and the operation that empties it
//   KestBaseProducerConsumer   base of the object through which threads produce into such a queue and consume from it
//
// Element type, storage, and the operations produce and consume are the derived classes'. A consumer waits in
// waitForSyncEvent while the queue is empty and m_sentinel is clear; a producer sets the event after each element; a
// sentinel tells the consumers that no more will come. As in
//
//   void produce(Item item) {                      bool consume(Item& item) {
//       lockSyncMutex();                               lockSyncMutex();
//       m_items.push(std::move(item));                 while (m_items.empty() && !m_sentinel) waitForSyncEvent();
//       setSyncEvent();                                const bool got = m_items.pop(item);
//       unlockSyncMutex();                             unlockSyncMutex();
//   }                                                  return got;
//                                                  }
//
// examples/pipeline is a whole program of this kind.
//
// Threads: any number may produce and consume. The mutex guards what producers and consumers share, the queue's lock
// its storage; who needs both takes the mutex first.
//
// Lifetime: the queue outlives the object that is built on it. Nobody waits when that is destroyed.
#pragma once

#include <memory>

#include "support/export.h"
#include "support/locks.h"

namespace KestSupport {

class KEST_SUPPORT_EXPORT KestBaseSynchronizedQueue {
  public:
    KestBaseSynchronizedQueue();
    KestBaseSynchronizedQueue(const KestBaseSynchronizedQueue&) = delete;
    KestBaseSynchronizedQueue& operator=(const KestBaseSynchronizedQueue&) = delete;
    virtual ~KestBaseSynchronizedQueue();

    /// Discards every element.
    virtual void clear() = 0;

    KestCriticalSectionObject& getLock() noexcept { return m_lock; }

  protected:
    KestCriticalSectionObject m_lock;  // guards the derived queue's storage
};

/// Mutex and event together act as a condition. When the system gives none (memory is short), the queue's lock serves
/// as the mutex, and waitForSyncEvent returns every few milliseconds: slower, and nothing is lost.
class KEST_SUPPORT_EXPORT KestBaseProducerConsumer {
  public:
    /// Without a sentinel, event not set. Keeps a reference to the queue.
    explicit KestBaseProducerConsumer(KestBaseSynchronizedQueue& queue) noexcept;
    KestBaseProducerConsumer(const KestBaseProducerConsumer&) = delete;
    KestBaseProducerConsumer& operator=(const KestBaseProducerConsumer&) = delete;
    virtual ~KestBaseProducerConsumer();

    /// Says that no more elements will come, for good, and wakes those who wait. With emptyQueue, the queue is cleared
    /// first; what that throws reaches the caller, after those who wait were woken. Takes the mutex; logs its steps at
    /// level 9.
    void produceSentinel(bool emptyQueue);

  protected:
    /// Takes the mutex, without limit. It is recursive: each level is given back by the same thread.
    void lockSyncMutex();
    void unlockSyncMutex();
    /// Wakes everybody who waits now, or else the next one to wait.
    void setSyncEvent();
    /// Called with one level of the mutex held: gives it back, waits for the event without limit, and returns with the
    /// mutex held again and the event reset. No set can fall between the first two steps. That another thread was
    /// quicker is possible, so the caller tests again what it waits for.
    void waitForSyncEvent();

    bool m_sentinel = false;  ///< no more elements will come; guarded by the mutex
    KestBaseSynchronizedQueue& m_queue;

  private:
    struct Sync;
    std::unique_ptr<Sync> m_pSync;  // null when event or mutex could not be made
};

}  // namespace KestSupport
