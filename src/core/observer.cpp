#include "support/observer.h"

#include <algorithm>

#include "support/locales.h"

namespace KestSupport {

KestNotification::~KestNotification() = default;
KestEventNotification::~KestEventNotification() = default;
PropertyChanged::~PropertyChanged() = default;
KestDependent::~KestDependent() = default;
KestCollaborator::~KestCollaborator() = default;

PropertyChanged::PropertyChanged(const std::string& propertyName) : m_propertyName(propertyName) {}

PropertyChanged::PropertyChanged(const wstring16& propertyName)
    : m_propertyName(KestStringUtilities::narrow(propertyName, KestLocaleFactory::getDefaultLocale(true))) {}

void KestDependent::handleNotification(KestCollaborator&, const KestNotification&) {}

void KestCollaborator::addDependent(KestDependent& dependent) {
    const KestCriticalSection guard(m_lock, true);
    m_dependents.push_back(&dependent);
}

void KestCollaborator::removeDependent(KestDependent& dependent) {
    const KestCriticalSection guard(m_lock, true);
    m_dependents.erase(std::remove(m_dependents.begin(), m_dependents.end(), &dependent), m_dependents.end());
}

void KestCollaborator::notify(const KestNotification& notification) {
    KestCriticalSection guard(m_lock, true);
    for (std::uint32_t position = 0; position < m_dependents.size(); ++position) {
        KestDependent* const dependent = m_dependents[position];
        guard.unlock();
        dependent->handleNotification(*this, notification);
        guard.lock();
    }
}

}  // namespace KestSupport
