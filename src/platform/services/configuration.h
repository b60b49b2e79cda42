// A service's configuration as the text of a file; docs/formats/service_manager.md describes it.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "platform/service_manager.h"

namespace KestSupport::platform {

inline constexpr std::size_t kConfigurationLimit = 128 * 1024;  ///< bytes of a file

struct StoredService : ServiceConfiguration {
    std::string description;  ///< UTF-8
    bool deleted = false;     ///< goes when it has stopped
};

bool isServiceName(std::string_view name) noexcept;

/// Whether every field but the name is in its range.
bool isValidService(const StoredService& service);

std::string formatConfiguration(const StoredService& service);

/// Nothing for a text that formatConfiguration did not write, or not for a valid service.
std::optional<StoredService> parseConfiguration(std::string_view text);

}  // namespace KestSupport::platform
