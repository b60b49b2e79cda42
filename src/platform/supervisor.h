// The supervisor of a program in the foreground, such as the init system: it starts the program, waits until the
// program reports that it is ready, and asks it to end. With a POSIX back end, $NOTIFY_SOCKET names the socket of the
// supervisor, and SIGTERM is its request. Without that variable there is no supervisor.
//
// Threads: any, while no thread changes the environment. Nothing here blocks or fails: a message that the supervisor
// cannot take is dropped.
#pragma once

#include <string_view>

namespace KestSupport::platform {

enum class SupervisorNews {
    progress,  ///< only the status changes
    ready,     ///< the start is complete
    stopping,  ///< the program ends on request
};

/// Sends the news and a status of one line, which the supervisor shows to its users.
void tellSupervisor(SupervisorNews news, std::string_view status);

}  // namespace KestSupport::platform
