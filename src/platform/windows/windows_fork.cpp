// The system has no fork.
#include "platform/fork.h"

namespace KestSupport::platform {

void onForkInChild(ForkHandler) noexcept {}

std::uint32_t forkCount() noexcept {
    return 0;
}

}  // namespace KestSupport::platform
