// Auto-reset events that notify their dependents before they signal.
//
// Threads: any thread may call every operation. set and pulse notify on the calling thread and signal after that, so
// every dependent has returned when a waiting thread wakes. An event must not be destroyed while a thread waits for it,
// nor by a dependent that it notifies; a thread whose wait was satisfied may destroy it at once.
//
// A pulse reaches only a thread that waits at that moment. Use set where the waiting thread may be late.
#pragma once

#include <atomic>
#include <vector>

#include "support/export.h"
#include "support/observer.h"

namespace KestSupport::platform {
class WaitObject;
}  // namespace KestSupport::platform

namespace KestSupport {

/// One signal: the first successful wait clears it, and releases one thread.
///
///   result of a wait  meaning
///   0                 signalled; a wait for any event: the lowest index of a signalled event
///   -1                the wait failed; also an empty set, a set of more than 64 events, or one with an inert event
///   -2                the time has passed
///   -3                the wait for one event was abandoned
///   -4                no memory for the set; not returned here, since a set needs none
///
/// An event for which the system has no memory is inert: it never signals, never notifies, and a wait for it alone
/// returns 0 at once.
class KEST_SUPPORT_EXPORT KestEvent {
  public:
    /// Creates an event that is not signalled, or an inert one.
    KestEvent() noexcept;
    KestEvent(const KestEvent&) = delete;
    KestEvent& operator=(const KestEvent&) = delete;
    virtual ~KestEvent();

    /// Notifies the dependents, then signals. If a dependent or a hook of a derived class throws, the caller gets the
    /// exception and the event is not signalled. A plain KestEvent that never had a dependent allocates nothing, so its
    /// set cannot fail.
    virtual void set();
    /// Clears the signal, without a notification.
    virtual void reset();
    /// Notifies the dependents, then releases one thread that waits now. No signal remains. Throws as set does.
    virtual void pulse();
    /// Blocks for up to `timeout` milliseconds, without limit for -1.
    virtual int wait(int timeout);
    /// Returns the address at which the event's platform handle is stored (a platform::WaitObject*), which the event
    /// owns; null for an inert event.
    virtual void* getHandle();

    /// Adds a dependent, as KestCollaborator::addDependent.
    void addDependent(KestDependent& dependent) {
        m_hadDependents.store(true, std::memory_order_release);
        m_collaborator.addDependent(dependent);
    }
    /// Removes a dependent, as KestCollaborator::removeDependent.
    void removeDependent(KestDependent& dependent) { m_collaborator.removeDependent(dependent); }

    /// Blocks for up to `timeout` milliseconds, without limit for -1, until all of the events or any one of them is
    /// signalled. All: the signals are consumed together or not at all. Any: the signal of the event whose index is
    /// returned is consumed. No thread changes the set during the wait. Allocates nothing.
    static int wait(std::vector<KestEvent*>& events, bool waitAll, int timeout);
    /// The same for an array of `count` events.
    static int wait(int count, KestEvent* events, bool waitAll, int timeout);

  protected:
    /// An event that a wait leaves signalled.
    explicit KestEvent(bool staysSignalled) noexcept;

    /// Returns what the dependents receive: a new KestEventNotification. destroyNotification gets it afterwards.
    virtual KestNotification* createNotification();
    /// Deletes the notification; null is allowed. Called also after a dependent has thrown.
    virtual void destroyNotification(KestNotification* notification);

  private:
    friend class KestStopEvent;

    void notifyDependents();
    platform::WaitObject* handle() const noexcept { return m_handle == nullptr ? nullptr : *m_handle; }

    KestCollaborator m_collaborator;
    std::atomic<bool> m_hadDependents{false};   // set by the first dependent, never cleared
    platform::WaitObject** m_handle = nullptr;  // an owned cell with an owned handle; set once
};

}  // namespace KestSupport
