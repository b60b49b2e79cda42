// The observer mechanism: a collaborator notifies its dependents, in the order of their registration.
//
//   KestNotification       what they receive; kinds are distinguished by their type
//   KestEventNotification  an event was set or pulsed (id 1)
//   PropertyChanged        a property changed; for users of the library, which sends none itself
//   KestDependent          an observer
//   KestCollaborator       a subject
//
// Threads: dependents may be added and removed from any thread, also during a notification. Handlers run on the
// notifying thread while no lock is held; two threads that notify one collaborator may call one handler at once.
//
// Lifetime: a collaborator keeps bare pointers. A dependent is removed from every collaborator before it is destroyed;
// a collaborator may be destroyed first, also by a handler that it calls: the notification then ends.
//
// Cost: adding, removing and each step of a notification take about the same time among any number of dependents.
#pragma once

#include <memory>
#include <string>

#include "support/exceptions.h"
#include "support/export.h"
#include "support/locks.h"
#include "support/strings.h"

namespace KestSupport {

class KestCollaborator;

namespace internal {
class DependentList;
}  // namespace internal

/// A small value with an id; the base of all notifications. Without a given id the id is 0.
class KEST_SUPPORT_EXPORT KestNotification {
  public:
    KestNotification() noexcept = default;
    explicit KestNotification(int id) noexcept : m_id(id) {}
    KestNotification(const KestNotification&) = default;
    KestNotification& operator=(const KestNotification&) = default;
    KestNotification& operator=(int id) noexcept {
        m_id = id;
        return *this;
    }
    virtual ~KestNotification();

    void setId(int id) noexcept { m_id = id; }
    int getId() const noexcept { return m_id; }

  protected:
    int m_id = 0;
};

/// Sent by an event each time it is set or pulsed, and so by a timer each time it fires.
class KEST_SUPPORT_EXPORT KestEventNotification : public KestNotification {
  public:
    KestEventNotification() noexcept : KestNotification(1) {}
    KestEventNotification(const KestEventNotification&) = default;
    KestEventNotification& operator=(const KestEventNotification&) = default;
    ~KestEventNotification() override;
};

/// Names a property that changed.
class KEST_SUPPORT_EXPORT PropertyChanged : public KestNotification {
  public:
    explicit PropertyChanged(const std::string& propertyName);
    /// Narrows the name through the library's default locale; throws what KestStringUtilities::narrow throws.
    explicit PropertyChanged(const wstring16& propertyName);
    ~PropertyChanged() override;

    std::string m_propertyName;
};

/// An observer. It does not know its collaborators, so its owner removes it from each before destroying it.
class KEST_SUPPORT_EXPORT KestDependent {
  public:
    KestDependent() noexcept = default;
    KestDependent(const KestDependent&) noexcept = default;
    KestDependent& operator=(const KestDependent&) noexcept { return *this; }
    virtual ~KestDependent();

    /// Called on the notifying thread, without any lock held; it may add and remove dependents of the sender and notify
    /// through it again. An exception ends the walk and reaches the notifying caller.
    virtual void handleNotification(KestCollaborator& sender, const KestNotification& notification);
};

/// A subject.
class KEST_SUPPORT_EXPORT KestCollaborator {
  public:
    KestCollaborator() noexcept;
    KestCollaborator(const KestCollaborator&) = delete;
    KestCollaborator& operator=(const KestCollaborator&) = delete;
    /// Notifies no dependent.
    virtual ~KestCollaborator();

    /// Calls every dependent in the order of registration and returns when the last has returned. The walk is by
    /// position: a dependent that is added during the walk is called in it too, and when one at or before the current
    /// position is removed, the next one is skipped in this walk.
    virtual void notify(const KestNotification& notification);

    /// Appends the dependent; one that was added twice is called twice.
    void addDependent(KestDependent& dependent);
    /// Removes every entry of the dependent; the others keep their order.
    void removeDependent(KestDependent& dependent);

  private:
    KestCriticalSectionObject m_lock;                        // never held while a dependent runs
    std::unique_ptr<internal::DependentList> m_pDependents;  // null until the first one is added; guarded by m_lock
};

}  // namespace KestSupport
