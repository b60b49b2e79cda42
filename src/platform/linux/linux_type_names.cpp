#include "platform/type_names.h"

#include <cxxabi.h>

#include <cstdlib>
#include <memory>

namespace KestSupport::platform {

std::string readableTypeName(const std::type_info& type) {
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> name(abi::__cxa_demangle(type.name(), nullptr, nullptr, &status),
                                                           &std::free);
    return status == 0 ? std::string(name.get()) : std::string(type.name());
}

}  // namespace KestSupport::platform
