#include "support/library.h"

#include <utility>

#include "platform/dynamic_library.h"
#include "platform/error.h"
#include "support/exceptions.h"

namespace KestSupport {
namespace {

[[noreturn]] void fail(const std::string& name, const std::string& message) {
    throw KestException("KestLibrary::KestLibrary: failed to load: " + name + ".  " + message, 0);
}

}  // namespace

KestLibrary::KestLibrary(const std::string& name, bool) : m_libraryName(name) {
    // For an empty name, a system's loader may return the program itself.
    std::string message;
    if (name.empty()) {
        message = platform::errorMessage(platform::errorModuleNotFound);
    } else {
        m_module = platform::loadLibrary(name, message);
    }
    if (m_module == nullptr) fail(name, message);
}

KestLibrary::KestLibrary(const KestLibrary& other) : KestObjectBase(other), m_libraryName(other.m_libraryName) {
    if (other.m_module == nullptr) return;
    std::string message;
    m_module = platform::loadAgain(other.m_module, message);
    if (m_module == nullptr) fail(m_libraryName, message);
}

KestLibrary& KestLibrary::operator=(const KestLibrary& other) {
    KestLibrary copy(other);
    m_libraryName.swap(copy.m_libraryName);
    std::swap(m_module, copy.m_module);
    return *this;
}

KestLibrary::~KestLibrary() {
    if (m_module != nullptr) platform::unloadLibrary(m_module);
}

void* KestLibrary::getProcAddr(const std::string& symbol) const noexcept {
    return m_module == nullptr ? nullptr : platform::findSymbol(m_module, symbol);
}

}  // namespace KestSupport
