#include "support/object_base.h"

#include <typeinfo>

#include "platform/type_names.h"

namespace KestSupport {

KestObjectBase::~KestObjectBase() = default;

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
