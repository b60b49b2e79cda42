// The folder of the data that outlives a process: the registry and the services. For back ends that keep these in
// files; Windows has them itself.
//
// It is $KEST_STATE_DIR. When that is unset or empty, a POSIX back end uses /var/lib/kest for root and
// $XDG_STATE_HOME/kest, by default ~/.local/state/kest, for other users.
//
// Threads: any, while no thread changes the environment.
#pragma once

#include <string>

#include "platform/error.h"

namespace KestSupport::platform {

/// Sets `path`; the folder need not exist. Returns 0, or errorPathNotFound for a user without a home.
ErrorCode stateDirectory(std::string& path);

/// Sets the absolute path, and makes the folder and its missing parents for this user alone. An existing folder keeps
/// its mode.
ErrorCode createStateDirectory(std::string& path);

}  // namespace KestSupport::platform
