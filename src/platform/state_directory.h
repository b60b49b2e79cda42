// The folder in which the library keeps what outlives a process: the registry and the services.
//
// $KEST_STATE_DIR; when that is unset or empty, on POSIX, /var/lib/kest for root and $XDG_STATE_HOME/kest for others,
// whose default is ~/.local/state/kest.
//
// Threads: any, while no thread changes the environment.
#pragma once

#include <string>

#include "platform/error.h"

namespace KestSupport::platform {

/// Sets `path`, without asking whether the folder is there. 0, or errorPathNotFound for a user without a home.
ErrorCode stateDirectory(std::string& path);

/// The same, and makes the folder, for this user alone, and its parents if they are missing. One that exists is left as
/// it is.
ErrorCode createStateDirectory(std::string& path);

}  // namespace KestSupport::platform
