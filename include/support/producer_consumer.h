// Bases for a queue that producer and consumer threads share.
//
//   KestBaseSynchronizedQueue  base of a typed queue: its lock, and the operation that empties it
//   KestBaseProducerConsumer   base of the object through which threads produce into such a queue and consume from it
//
// The derived classes define the element type, the storage, and the operations produce and consume. A consumer waits in
// waitForSyncEvent while the queue is empty and m_sentinel is clear. A producer sets the event after each element. A
// sentinel means that no more elements will be produced. For example:
//
//   void produce(Item item) {                      bool consume(Item& item) {
//       lockSyncMutex();                               lockSyncMutex();
//       m_items.push(std::move(item));                 while (m_items.empty() && !m_sentinel) waitForSyncEvent();
//       setSyncEvent();                                const bool got = m_items.pop(item);
//       unlockSyncMutex();                             unlockSyncMutex();
//   }                                                  return got;
//                                                  }
//
// examples/pipeline is a complete program of this kind.
//
// Threads: any number of threads may produce and consume. The mutex guards the state that producers and consumers
// share; the queue's lock guards its storage. A thread that needs both takes the mutex first.
//
// Lifetime: the queue outlives the object that is built on it. No thread waits when that object is destroyed.
#pragma once

#include <memory>

#include "support/export.h"
#include "support/locks.h"

namespace KestSupport {

/// The base of a queue: its lock, and the operation that empties it.
class KEST_SUPPORT_EXPORT KestBaseSynchronizedQueue {
  public:
    KestBaseSynchronizedQueue();
    KestBaseSynchronizedQueue(const KestBaseSynchronizedQueue&) = delete;
    KestBaseSynchronizedQueue& operator=(const KestBaseSynchronizedQueue&) = delete;
    virtual ~KestBaseSynchronizedQueue();

    /// Discards every element.
    virtual void clear() = 0;

    /// Returns the lock of the storage, which the queue owns.
    KestCriticalSectionObject& getLock() noexcept { return m_lock; }

  protected:
    KestCriticalSectionObject m_lock;  ///< guards the derived queue's storage
};

/// Mutex and event together act as a condition. When they cannot be made (memory is short), the queue's lock serves as
/// the mutex, and waitForSyncEvent returns every 10 milliseconds: slower, and no element is lost.
class KEST_SUPPORT_EXPORT KestBaseProducerConsumer {
  public:
    /// Makes an object without a sentinel and with the event not set. Keeps a reference to the queue.
    explicit KestBaseProducerConsumer(KestBaseSynchronizedQueue& queue) noexcept;
    KestBaseProducerConsumer(const KestBaseProducerConsumer&) = delete;
    KestBaseProducerConsumer& operator=(const KestBaseProducerConsumer&) = delete;
    virtual ~KestBaseProducerConsumer();

    /// Sets the sentinel permanently and wakes the waiting threads. With emptyQueue, the queue is cleared first; an
    /// exception of clear is thrown to the caller after the waiting threads were woken. Takes the mutex; logs its steps
    /// at level 9.
    void produceSentinel(bool emptyQueue);

  protected:
    /// Takes the mutex; blocks without limit. It is recursive: the same thread releases each level.
    void lockSyncMutex();
    /// Releases one level.
    void unlockSyncMutex();
    /// Wakes every thread that waits now; when there is none, the next one to wait. A thread that holds the mutex may
    /// wake them when it releases its last level.
    void setSyncEvent();
    /// Called with one level of the mutex held: releases it, waits for the event without limit, and returns with the
    /// mutex held again and the event reset. No set between the first two steps is missed. Another thread may take the
    /// element first, so the caller tests its condition again.
    void waitForSyncEvent();

    bool m_sentinel = false;             ///< no more elements will be produced; guarded by the mutex
    KestBaseSynchronizedQueue& m_queue;  ///< the queue; not owned

  private:
    struct Sync;
    std::unique_ptr<Sync> m_pSync;  // null when event or mutex could not be made
};

}  // namespace KestSupport
