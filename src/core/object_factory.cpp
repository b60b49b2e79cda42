#include "support/object_factory.h"

#include <map>
#include <utility>

#include "platform/process_memory.h"
#include "platform/uninterrupted.h"

namespace KestSupport {
namespace {

// Returns the entry of the name, or null.
template <typename Value>
Value found(const std::map<std::string, Value>& entries, const std::string& name) {
    const auto entry = entries.find(name);
    return entry == entries.end() ? nullptr : entry->second;
}

}  // namespace

KestExemplar::~KestExemplar() = default;
KestObjectFactoryRegistration::~KestObjectFactoryRegistration() = default;

constinit KestObjectFactory* KestObjectFactory::m_pGlobalInstance = nullptr;

struct KestObjectFactory::Entries {
    std::map<std::string, Creator> creators;
    std::map<std::string, KestObjectFactoryRegistration*> registrations;
};

KestObjectFactory::KestObjectFactory() : m_pEntries(new Entries) {}

KestObjectFactory::KestObjectFactory(const KestObjectFactory& other)
    : m_pEntries(new Entries{other.m_pEntries->creators, {}}) {}

// The target keeps its lock and its registrations.
KestObjectFactory& KestObjectFactory::operator=(const KestObjectFactory& other) {
    if (this == &other) return *this;
    auto creators = other.m_pEntries->creators;  // without memory, nothing is changed
    const platform::Uninterrupted change;
    m_pEntries->creators.swap(creators);
    return *this;
}

KestObjectFactory::~KestObjectFactory() {
    delete m_pEntries;
}

// A map is changed as a whole: a thread that was killed in between would leave a tree that another thread cannot use.
void KestObjectFactory::add(const std::string& name, Creator creator) {
    const KestCriticalSection guard(m_lock, true);
    const platform::Uninterrupted change;
    m_pEntries->creators[name] = creator;
}

void KestObjectFactory::add(const std::string& name, KestObjectFactoryRegistration& registration) {
    const KestCriticalSection guard(m_lock, true);
    const platform::Uninterrupted change;
    m_pEntries->registrations[name] = &registration;
}

void KestObjectFactory::remove(const std::string& name) {
    const KestCriticalSection guard(m_lock, true);
    const platform::Uninterrupted change;
    if (m_pEntries->registrations.erase(name) == 0) m_pEntries->creators.erase(name);
}

KestSmartPointer<KestObjectBase> KestObjectFactory::construct(const std::string& name) {
    KestCriticalSection guard(m_lock, true);
    KestObjectFactoryRegistration* const registration = found(m_pEntries->registrations, name);
    const Creator creator = registration == nullptr ? found(m_pEntries->creators, name) : nullptr;
    guard.unlock();
    if (registration != nullptr) return registration->create();
    return creator != nullptr ? creator() : nullptr;
}

std::vector<std::string> KestObjectFactory::getRegisteredClasses() const {
    std::vector<std::string> names;
    names.reserve(m_pEntries->creators.size() + m_pEntries->registrations.size());
    for (const auto& entry : m_pEntries->creators)
        names.push_back(entry.first);
    for (const auto& entry : m_pEntries->registrations)
        names.push_back(entry.first);
    return names;
}

// A plug-in that is linked with the static library may have no Module object, which deletes the factory otherwise.
KestObjectFactory& KestObjectFactory::getGlobalInstance() {
    struct DeleteAtUnload {
        ~DeleteAtUnload() { deleteGlobalInstance(); }
    };
    static constinit platform::ProcessObject<DeleteAtUnload> deleteAtUnload;
    if (m_pGlobalInstance == nullptr) {
        deleteAtUnload.get();
        m_pGlobalInstance = new KestObjectFactory;
    }
    return *m_pGlobalInstance;
}

void KestObjectFactory::deleteGlobalInstance() {
    delete std::exchange(m_pGlobalInstance, nullptr);
}

}  // namespace KestSupport
