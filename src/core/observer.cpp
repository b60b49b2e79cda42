#include "support/observer.h"

#include "core/dependent_list.h"
#include "platform/uninterrupted.h"
#include "support/locales.h"

namespace KestSupport {
namespace {

// One call of notify, on the stack of its thread. It learns when a handler destroys the collaborator.
class Notifying {
  public:
    explicit Notifying(const KestCollaborator& collaborator) noexcept
        : m_collaborator(&collaborator), m_outer(s_innermost) {
        s_innermost = this;
    }
    Notifying(const Notifying&) = delete;
    Notifying& operator=(const Notifying&) = delete;
    ~Notifying() { s_innermost = m_outer; }

    bool collaboratorIsGone() const noexcept { return m_collaborator == nullptr; }

    static void forget(const KestCollaborator& collaborator) noexcept {
        for (Notifying* call = s_innermost; call != nullptr; call = call->m_outer) {
            if (call->m_collaborator == &collaborator) call->m_collaborator = nullptr;
        }
    }

  private:
    static constinit thread_local Notifying* s_innermost;

    const KestCollaborator* m_collaborator;
    Notifying* const m_outer;
};

constinit thread_local Notifying* Notifying::s_innermost = nullptr;

}  // namespace

KestNotification::~KestNotification() = default;
KestEventNotification::~KestEventNotification() = default;
PropertyChanged::~PropertyChanged() = default;
KestDependent::~KestDependent() = default;
KestCollaborator::KestCollaborator() noexcept = default;

PropertyChanged::PropertyChanged(const std::string& propertyName) : m_propertyName(propertyName) {}

PropertyChanged::PropertyChanged(const wstring16& propertyName)
    : m_propertyName(KestStringUtilities::narrow(propertyName, KestLocaleFactory::getDefaultLocale(true))) {}

void KestDependent::handleNotification(KestCollaborator&, const KestNotification&) {}

// The list is changed as a whole. A thread that was killed between two of its members would leave a list in which the
// next notification calls a null pointer.
void KestCollaborator::addDependent(KestDependent& dependent) {
    const KestCriticalSection guard(m_lock, true);
    const platform::Uninterrupted change;
    internal::DependentList* dependents = m_pDependents.load(std::memory_order_relaxed);
    if (dependents == nullptr) {
        dependents = new internal::DependentList;
        m_pDependents.store(dependents, std::memory_order_release);
    }
    dependents->add(dependent);
}

void KestCollaborator::removeDependent(KestDependent& dependent) {
    const KestCriticalSection guard(m_lock, true);
    const platform::Uninterrupted change;
    internal::DependentList* const dependents = m_pDependents.load(std::memory_order_relaxed);
    if (dependents != nullptr) dependents->remove(dependent);
}

KestCollaborator::~KestCollaborator() {
    Notifying::forget(*this);
    delete m_pDependents.load(std::memory_order_acquire);
}

void KestCollaborator::notify(const KestNotification& notification) {
    // Without a dependent the lock is not created either. A thread that starts and ends does not allocate then.
    const internal::DependentList* const dependents = m_pDependents.load(std::memory_order_acquire);
    if (dependents == nullptr) return;
    Notifying call(*this);
    KestCriticalSection guard(m_lock, true);
    internal::DependentList::Walk walk;
    while (KestDependent* const dependent = dependents->next(walk)) {
        guard.unlock();
        dependent->handleNotification(*this, notification);
        if (call.collaboratorIsGone() || dependents->hasEnded(walk)) return;
        guard.lock();
    }
}

}  // namespace KestSupport
