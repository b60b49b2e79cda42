// Readable names of types.
#pragma once

#include <string>
#include <typeinfo>

namespace KestSupport::platform {

/// The namespace-qualified name of a type as a programmer writes it, without a keyword in front. Throws std::bad_alloc
/// only; a name that the compiler's run-time library cannot read is returned as it is.
std::string readableTypeName(const std::type_info& type);

}  // namespace KestSupport::platform
