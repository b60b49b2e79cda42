#include "support/object_base.h"

#include <cstring>
#include <typeinfo>

#include "platform/type_names.h"

namespace KestSupport {

namespace {

// The begin of a table of virtual functions.
struct VirtualFunctions {
#if defined(_MSVC_LANG)
    const void* destructor;
#else
    const void* destructors[2];
#endif
    const void* addRef;
    const void* release;
};

const VirtualFunctions& virtualFunctions(const KestObjectBase& object) noexcept {
    const void* functions = nullptr;
    std::memcpy(&functions, static_cast<const void*>(&object), sizeof functions);
    return *static_cast<const VirtualFunctions*>(functions);
}

}  // namespace

KestObjectBase::~KestObjectBase() = default;

constinit KestObjectBase::Flag KestObjectBase::m_hasOverrides;

// One function may have several addresses, for example in a program that is linked with -no-pie. Its classes then seem
// to override the functions, and smart pointers call them.
void KestObjectBase::noteOverrides() const noexcept {
    if (m_hasOverrides.isSet.load(std::memory_order_relaxed)) return;
    const KestObjectBase plain;
    const VirtualFunctions& own = virtualFunctions(*this);
    const VirtualFunctions& inherited = virtualFunctions(plain);
    if (own.addRef != inherited.addRef || own.release != inherited.release)
        m_hasOverrides.isSet.store(true, std::memory_order_relaxed);
}

// The count is an atomic counter, because a lock would serialise all objects of the process. addRef needs no memory
// order: its caller has a reference already, or got the object from a thread that has one.
unsigned long KestObjectBase::addRef() {
    return m_refCount.fetch_add(1, std::memory_order_relaxed) + 1;
}

unsigned long KestObjectBase::release() {
    const std::uint32_t left = m_refCount.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (left == 0) delete this;
    return left;
}

unsigned long KestObjectBase::refCount() const {
    return m_refCount.load(std::memory_order_relaxed);
}

bool KestObjectBase::isA(const std::string& name) const {
    return platform::readableTypeName(typeid(*this)) == name;
}

std::string KestObjectBase::getClassName() const {
    return platform::readableTypeName(typeid(*this));
}

std::string KestObjectBase::normalizeClassName(const std::string& s) {
    const std::string::size_type blank = s.find(' ');
    return blank == std::string::npos ? s : s.substr(blank + 1);
}

}  // namespace KestSupport
