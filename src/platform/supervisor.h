// The supervisor of a program that runs in the foreground, such as the system's init: it starts the program, waits to
// hear that it is ready, and asks it to end. With a POSIX back end it is reached by the socket that $NOTIFY_SOCKET
// names, and asks by SIGTERM; a program without one tells nobody.
//
// Threads: any, while no thread changes the environment. Nothing here blocks or fails: what the supervisor does not
// hear is its loss.
#pragma once

#include <string_view>

namespace KestSupport::platform {

enum class SupervisorNews {
    progress,  ///< the status alone
    ready,     ///< the start is complete
    stopping,  ///< the end has begun, and was asked for
};

/// Tells the supervisor, with a status of one line that it shows to people.
void tellSupervisor(SupervisorNews news, std::string_view status);

}  // namespace KestSupport::platform
