#include "platform/uninterrupted.h"

#include "platform/linux/linux_wait_object.h"

namespace KestSupport::platform {

void beginUninterrupted() noexcept {
    Region::begin(t_record);
}

void endUninterrupted() noexcept {
    Region::end(t_record);
}

}  // namespace KestSupport::platform
