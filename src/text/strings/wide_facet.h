// The facet of a locale, without the type test of std::use_facet.
#pragma once

#include <locale>

#include "support/strings.h"

namespace KestSupport::internal {

/// The same as std::use_facet<wide_ctype>. This file's source is compiled without type information, so that libstdc++
/// does not compare the names of types: the conversion of a short text takes 24 instead of 32 ns. A locale has nothing
/// but a wide_ctype under the id of wide_ctype.
const wide_ctype& wideFacetOf(const std::locale& locale);

}  // namespace KestSupport::internal
