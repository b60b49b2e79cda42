// A typed queue, and a channel through which threads send items into the queue and receive them: classes that a program
// derives from the library's bases. Any number of threads may send and receive.
#pragma once

#include <deque>
#include <utility>

#include <support/locks.h>
#include <support/producer_consumer.h>

namespace pipeline {

template <typename Item>
class Queue : public KestSupport::KestBaseSynchronizedQueue {
  public:
    void push(Item item) {
        const KestSupport::KestCriticalSection guard(m_lock, true);
        m_items.push_back(std::move(item));
    }

    /// Returns false when the queue is empty.
    bool pop(Item& item) {
        const KestSupport::KestCriticalSection guard(m_lock, true);
        if (m_items.empty()) return false;
        item = std::move(m_items.front());
        m_items.pop_front();
        return true;
    }

    void clear() override {
        const KestSupport::KestCriticalSection guard(m_lock, true);
        m_items.clear();
    }

  private:
    std::deque<Item> m_items;  // guarded by m_lock
};

/// Each item is received once, in the order of sending. produceSentinel(false) closes the channel; items that were sent
/// before are still received. produceSentinel(true) drops them.
template <typename Item>
class Channel : public KestSupport::KestBaseProducerConsumer {
  public:
    explicit Channel(Queue<Item>& items) : KestBaseProducerConsumer(items), m_items(items) {}

    /// Returns false and drops the item when the channel is closed.
    bool send(Item item) {
        const Locked locked(*this);
        if (m_sentinel) return false;
        m_items.push(std::move(item));
        setSyncEvent();
        return true;
    }

    /// Waits for an item. Returns false when the channel is closed and empty.
    bool receive(Item& item) {
        const Locked locked(*this);
        while (!m_items.pop(item)) {
            if (m_sentinel) return false;
            waitForSyncEvent();
        }
        return true;
    }

  private:
    class Locked {
      public:
        explicit Locked(Channel& channel) : m_channel(channel) { m_channel.lockSyncMutex(); }
        Locked(const Locked&) = delete;
        Locked& operator=(const Locked&) = delete;
        ~Locked() { m_channel.unlockSyncMutex(); }

      private:
        Channel& m_channel;
    };

    Queue<Item>& m_items;
};

}  // namespace pipeline
