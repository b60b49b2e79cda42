// Readable names of types.
#pragma once

#include <string>
#include <typeinfo>

namespace KestSupport::platform {

/// Returns the namespace-qualified name of a type as a programmer writes it, without a keyword before it. A name that
/// the run-time library of the compiler cannot read is returned unchanged. Throws only std::bad_alloc.
std::string readableTypeName(const std::type_info& type);

}  // namespace KestSupport::platform
