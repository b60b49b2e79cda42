// Starts or stops one service and waits for the new state.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "manager.h"
#include "report.h"
#include "wait.h"

namespace kestsc {

/// Starts the service of the task and waits until it runs. Returns the outcome: "started", "is already running". When
/// the last run is still ending, waits for its end first. Throws a Failure, also when the service stops instead; the
/// Failure names the services that this one depends on and that do not run.
std::string startService(const Manager& manager, const Task& task, const std::vector<std::string>& arguments,
                         const Patience& patience);

/// Stops the service of the task and waits until it is stopped. Returns the outcome: "stopped", "is not running",
/// "killed". A service that is still starting is stopped as soon as it accepts controls. Throws a Failure, which names
/// the running services that depend on this one.
std::string stopService(const Manager& manager, const Task& task, const Patience& patience);

/// Starts the services of type auto, each after those that it depends on. Reports each result. Returns the services
/// that failed. An Interrupted is thrown.
std::set<std::string> startAutomatic(const Manager& manager, const Patience& patience, Report& report);

}  // namespace kestsc
