// Streams of open files.
#pragma once

#include "platform/file_stream.h"
#include "platform/linux/linux_descriptor.h"

namespace KestSupport::platform {

/// Returns a stream that owns the file, or null with errno if the file is not open or the runtime refuses.
Stream streamOf(Descriptor file, StreamMode mode) noexcept;

}  // namespace KestSupport::platform
