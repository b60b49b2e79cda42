#include "support/observer.h"

#include "core/dependent_list.h"
#include "support/locales.h"

namespace KestSupport {

KestNotification::~KestNotification() = default;
KestEventNotification::~KestEventNotification() = default;
PropertyChanged::~PropertyChanged() = default;
KestDependent::~KestDependent() = default;
KestCollaborator::KestCollaborator() noexcept = default;
KestCollaborator::~KestCollaborator() = default;

PropertyChanged::PropertyChanged(const std::string& propertyName) : m_propertyName(propertyName) {}

PropertyChanged::PropertyChanged(const wstring16& propertyName)
    : m_propertyName(KestStringUtilities::narrow(propertyName, KestLocaleFactory::getDefaultLocale(true))) {}

void KestDependent::handleNotification(KestCollaborator&, const KestNotification&) {}

void KestCollaborator::addDependent(KestDependent& dependent) {
    const KestCriticalSection guard(m_lock, true);
    if (m_pDependents == nullptr) m_pDependents = std::make_unique<internal::DependentList>();
    m_pDependents->add(dependent);
}

void KestCollaborator::removeDependent(KestDependent& dependent) {
    const KestCriticalSection guard(m_lock, true);
    if (m_pDependents != nullptr) m_pDependents->remove(dependent);
}

void KestCollaborator::notify(const KestNotification& notification) {
    KestCriticalSection guard(m_lock, true);
    internal::DependentList::Walk walk;
    while (KestDependent* const dependent = m_pDependents == nullptr ? nullptr : m_pDependents->next(walk)) {
        guard.unlock();
        dependent->handleNotification(*this, notification);
        guard.lock();
    }
}

}  // namespace KestSupport
