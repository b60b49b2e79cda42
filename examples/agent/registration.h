// Registers and unregisters the agent as a service of this machine.
#pragma once

#include <optional>
#include <string>

namespace agent {

extern const char* const kServiceName;

/// Registers this program with the settings file in its command line. Throws BadInput when it is already registered or
/// when the manager refuses.
void installService(const std::optional<std::string>& settingsFile);

/// Stops the service if it runs, and unregisters it. Throws BadInput when it is not registered or when the manager
/// refuses.
void removeService();

}  // namespace agent
