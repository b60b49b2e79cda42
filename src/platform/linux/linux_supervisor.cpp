// The notification protocol of the init system: one datagram with lines of the form NAME=VALUE.
#include <sys/socket.h>
#include <sys/un.h>

#include <cstddef>
#include <cstdlib>
#include <string>

#include "platform/linux/linux_call.h"
#include "platform/linux/linux_descriptor.h"
#include "platform/supervisor.h"

namespace KestSupport::platform {
namespace {

std::string messageOf(SupervisorNews news, std::string_view status) {
    std::string message;
    if (news == SupervisorNews::ready) message = "READY=1\n";
    if (news == SupervisorNews::stopping) message = "STOPPING=1\n";
    return message.append("STATUS=").append(status).append("\n");
}

}  // namespace

void tellSupervisor(SupervisorNews news, std::string_view status) {
    const char* const name = std::getenv("NOTIFY_SOCKET");
    const std::string_view path = name == nullptr ? "" : name;
    sockaddr_un address = {};
    // A path, or a name without a file, which begins with a NUL.
    const bool isAbstract = path.starts_with('@');
    if ((!isAbstract && !path.starts_with('/')) || path.size() >= sizeof address.sun_path) return;
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, path.size());
    if (isAbstract) address.sun_path[0] = '\0';
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
    const Descriptor socket(
        systemCall("connectSupervisor", [] { return ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0); }));
    if (!socket.isOpen()) return;
    const std::string message = messageOf(news, status);
    systemCall("tellSupervisor", [&] {
        return ::sendto(socket.get(), message.data(), message.size(), MSG_NOSIGNAL | MSG_DONTWAIT,
                        reinterpret_cast<const sockaddr*>(&address), size);
    });
}

}  // namespace KestSupport::platform
