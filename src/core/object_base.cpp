#include "support/object_base.h"

#include "platform/type_names.h"

namespace KestSupport {
namespace {

// Out of line, so that a release that is not the last needs no stack frame.
[[gnu::noinline]] unsigned long destroy(KestObjectBase* object) {
    delete object;
    return 0;
}

}  // namespace

KestObjectBase::~KestObjectBase() = default;

// The count is an atomic counter; a lock around it would serialise all objects of the process. Taking a reference
// orders nothing, because whoever takes one holds one already or has the object from somebody who does.
unsigned long KestObjectBase::addRef() {
    return m_refCount.fetch_add(1, std::memory_order_relaxed) + 1;
}

unsigned long KestObjectBase::release() {
    const std::uint32_t left = m_refCount.fetch_sub(1, std::memory_order_acq_rel) - 1;
    return left != 0 ? left : destroy(this);
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
