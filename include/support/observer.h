// The observer mechanism: a collaborator notifies its dependents, in the order of their registration.
//
//   KestNotification       the value that dependents receive; its type distinguishes the kinds
//   KestEventNotification  an event was set or pulsed (id 1)
//   PropertyChanged        a property changed; for users, the library sends none
//   KestDependent          an observer
//   KestCollaborator       a subject
//
// Threads: any thread may add and remove dependents, also during a notification. Handlers run on the notifying thread
// while no lock is held. Two threads that notify through one collaborator may call one handler at the same time.
//
// Lifetime: a collaborator keeps bare pointers, so a dependent is removed from every collaborator before it is
// destroyed. A handler may destroy the collaborator that calls it; the notification then ends.
//
// Cost: adding, removing and each step of a notification take about the same time for any number of dependents.
#pragma once

#include <atomic>
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

/// A small value with an id, which is 0 unless one is given; the base of all notifications.
class KEST_SUPPORT_EXPORT KestNotification {
  public:
    /// The id is 0 unless one is given.
    KestNotification() noexcept = default;
    explicit KestNotification(int id) noexcept : m_id(id) {}
    KestNotification(const KestNotification&) = default;
    KestNotification& operator=(const KestNotification&) = default;
    /// Sets the id.
    KestNotification& operator=(int id) noexcept {
        m_id = id;
        return *this;
    }
    virtual ~KestNotification();

    /// The id has the meaning that the sender gives it.
    void setId(int id) noexcept { m_id = id; }
    int getId() const noexcept { return m_id; }

  protected:
    int m_id = 0;  ///< the id
};

/// An event sends it each time it is set or pulsed, and so does a timer each time it fires.
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
    /// The id is 0.
    explicit PropertyChanged(const std::string& propertyName);
    /// Narrows the name through KestLocaleFactory::getDefaultLocale(true). Throws what KestStringUtilities::narrow
    /// throws.
    explicit PropertyChanged(const wstring16& propertyName);
    ~PropertyChanged() override;

    std::string m_propertyName;  ///< the name of the property
};

/// An observer. It does not know its collaborators, so its owner removes it from each before it destroys it.
class KEST_SUPPORT_EXPORT KestDependent {
  public:
    KestDependent() noexcept = default;
    KestDependent(const KestDependent&) noexcept = default;
    KestDependent& operator=(const KestDependent&) noexcept { return *this; }
    virtual ~KestDependent();

    /// Receives a notification on the notifying thread, with no lock held. It may add and remove dependents of the
    /// sender, and notify through it. An exception ends the notification and passes to the caller of notify.
    virtual void handleNotification(KestCollaborator& sender, const KestNotification& notification);
};

/// A subject.
class KEST_SUPPORT_EXPORT KestCollaborator {
  public:
    KestCollaborator() noexcept;
    KestCollaborator(const KestCollaborator&) = delete;
    KestCollaborator& operator=(const KestCollaborator&) = delete;
    /// Sends no notification.
    virtual ~KestCollaborator();

    /// Calls the handler of each dependent in the order of registration and returns after the last. The walk counts
    /// positions: a dependent that is added during the walk is called in it too, and when an entry at or before the
    /// current position is removed, this walk skips the next entry. Example: in the list a b c the handler of a removes
    /// a; this walk calls a and c, the next one b and c.
    virtual void notify(const KestNotification& notification);

    /// Appends an entry for the dependent. Two entries mean two calls. Throws std::bad_alloc, and then adds none.
    void addDependent(KestDependent& dependent);
    /// Removes every entry of the dependent. The other entries keep their order.
    void removeDependent(KestDependent& dependent);

  private:
    KestCriticalSectionObject m_lock;  // not held while a handler runs
    // Null before the first addDependent. Changed under m_lock; the list is guarded by m_lock.
    std::atomic<internal::DependentList*> m_pDependents{nullptr};
};

}  // namespace KestSupport
