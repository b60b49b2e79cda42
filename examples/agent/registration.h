// How the agent becomes a service of this machine, and ceases to be one.
#pragma once

#include <optional>
#include <string>

namespace agent {

extern const char* const kServiceName;

/// Registers this program, which the manager is to call with the settings file. Throws BadInput when it is registered
/// already, or when the manager refuses.
void installService(const std::optional<std::string>& settingsFile);

/// Stops the service, if it runs, and takes it out. Throws BadInput when there is none, or when the manager refuses.
void removeService();

}  // namespace agent
