#include "text/strings/wide_facet.h"

namespace KestSupport::internal {

const wide_ctype& wideFacetOf(const std::locale& locale) {
    return std::use_facet<wide_ctype>(locale);
}

}  // namespace KestSupport::internal
