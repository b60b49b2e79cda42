// The local zones that this process has seen, each with the text that identifies it.
#pragma once

#include <string>
#include <string_view>

#include "platform/process_memory.h"

namespace KestSupport::platform {

using KnownZone = ProcessList<std::string>::Entry;

/// Returns the zone with the text, which is added if it is new; null if there are too many.
const KnownZone* knownZone(std::string_view text);

/// The number of a zone in local_time.h; 0 for null.
inline std::uint32_t numberOf(const KnownZone* zone) noexcept {
    return zone == nullptr ? 0 : zone->number + 1;
}

}  // namespace KestSupport::platform
