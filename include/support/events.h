// Auto-reset events that tell their dependents before they signal.
//
// Threads: every operation may be called by any thread. A set or pulse notifies on the calling thread, before the
// signal is raised, so a dependent has been told by the time that a waiter wakes. An event must not be destroyed while
// a thread waits on it; it may be destroyed by the thread that a signal released.
//
// A pulse reaches the threads that wait at that moment, and nobody else; prefer set where a waiter may be late.
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
/// Results of the waits: 0 signalled (any: the lowest index that was signalled), -1 the wait failed (also: no event, or
/// more than 64), -2 time-out, -3 abandoned, -4 no memory for the set. An event that could not be made is inert: it
/// never signals, never notifies, and a wait for it alone returns 0 at once.
class KEST_SUPPORT_EXPORT KestEvent {
  public:
    /// Not signalled. Throws nothing: a failure leaves an inert event.
    KestEvent() noexcept;
    KestEvent(const KestEvent&) = delete;
    KestEvent& operator=(const KestEvent&) = delete;
    virtual ~KestEvent();

    /// Notifies the dependents, then signals. What a dependent throws reaches the caller, and the event is not
    /// signalled. A plain KestEvent that never had a dependent allocates nothing, so its set cannot fail.
    virtual void set();
    /// Clears the signal; nobody is notified.
    virtual void reset();
    /// Notifies the dependents, then releases one thread that waits now; no signal remains.
    virtual void pulse();
    /// Blocks up to timeout milliseconds, without limit for -1.
    virtual int wait(int timeout);
    /// The address at which the event's platform handle is stored (a platform::WaitObject*); null for an inert event.
    virtual void* getHandle();

    void addDependent(KestDependent& dependent) {
        m_hadDependents.store(true, std::memory_order_release);
        m_collaborator.addDependent(dependent);
    }
    void removeDependent(KestDependent& dependent) { m_collaborator.removeDependent(dependent); }

    /// Waits for all of the events, or for any one of them. All: the signals are consumed together or not at all. Any:
    /// the signal of the event whose index is returned is consumed. The set stays unchanged meanwhile, and none of its
    /// events is inert.
    static int wait(std::vector<KestEvent*>& events, bool waitAll, int timeout);
    /// The same for count events that lie one after the other in memory.
    static int wait(int count, KestEvent* events, bool waitAll, int timeout);

  protected:
    /// What the dependents are given: a new KestEventNotification, which destroyNotification takes back.
    virtual KestNotification* createNotification();
    virtual void destroyNotification(KestNotification* notification);

  private:
    void notifyDependents();

    KestCollaborator m_collaborator;
    std::atomic<bool> m_hadDependents{false};   // set by the first dependent, never cleared
    platform::WaitObject** m_handle = nullptr;  // a cell of its own; set once
};

}  // namespace KestSupport
