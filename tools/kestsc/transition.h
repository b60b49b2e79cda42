// Starting and stopping one service, up to the state that is wanted.
#pragma once

#include <string>
#include <vector>

#include "manager.h"
#include "wait.h"

namespace kestsc {

/// Starts the service that the task names and waits until it runs. What has happened, as a sentence's end: "started",
/// "is already running". A service whose last run is still ending is started when that is over. Throws a Failure, also
/// for a service that stops instead; it names the services that this one depends on in vain.
std::string startService(const Manager& manager, const Task& task, const std::vector<std::string>& arguments,
                         const Patience& patience);

/// Stops the service and waits until it is stopped: "stopped", "is not running". One that is still starting is stopped
/// as soon as it takes controls. Throws a Failure; while others depend on the service, it names them.
std::string stopService(const Manager& manager, const Task& task, const Patience& patience);

}  // namespace kestsc
