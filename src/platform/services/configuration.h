// The configuration of a service as the text of a file. docs/formats/service_manager.md describes the format.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "platform/service_manager.h"

namespace KestSupport::platform {

inline constexpr std::size_t kConfigurationLimit = std::size_t{128} * 1024;  ///< bytes of a file

struct StoredService : ServiceConfiguration {
    std::string description;  ///< UTF-8
    bool deleted = false;     ///< marked for deletion: deleted when it has stopped
};

/// Whether every field except the name is in its range.
bool isValidService(const StoredService& service);

std::string formatConfiguration(const StoredService& service);

/// Returns nothing for a text that is not the configuration of a valid service.
std::optional<StoredService> parseConfiguration(std::string_view text);

}  // namespace KestSupport::platform
