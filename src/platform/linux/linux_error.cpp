#include <cerrno>

#include "platform/common/error_numbers.h"

namespace KestSupport::platform {

std::span<const ErrorNumber> systemErrorNumbers() noexcept {
    static constexpr ErrorNumber rows[] = {{errorDiskFull, EDQUOT}};
    return rows;
}

}  // namespace KestSupport::platform
