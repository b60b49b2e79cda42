// The form of a name depends on the compiler, not on the system.
#include "platform/type_names.h"

#ifdef __GNUC__
#include <cxxabi.h>

#include <cstdlib>
#include <memory>
#else
#include <string_view>
#endif

namespace KestSupport::platform {

#ifdef __GNUC__
std::string readableTypeName(const std::type_info& type) {
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> name(abi::__cxa_demangle(type.name(), nullptr, nullptr, &status),
                                                           &std::free);
    return status == 0 ? std::string(name.get()) : std::string(type.name());
}
#else
std::string readableTypeName(const std::type_info& type) {
    std::string_view name = type.name();
    for (const std::string_view keyword : {"class ", "struct ", "union ", "enum "}) {
        if (name.starts_with(keyword)) name.remove_prefix(keyword.size());
    }
    return std::string(name);
}
#endif

}  // namespace KestSupport::platform
