// Messages between the processes of services: one message, one answer, on sockets that keep the bounds of messages. A
// message may carry descriptors.
#pragma once

#include <sys/socket.h>

#include <array>
#include <cstdint>
#include <string>

#include "platform/error.h"
#include "platform/linux/linux_descriptor.h"

namespace KestSupport::platform {

/// How long a service has, in milliseconds, to reach the dispatcher and to answer a control: 30 seconds, or
/// $KEST_SERVICE_TIMEOUT.
std::uint32_t serviceTimeout();

/// A pair of connected sockets.
ErrorCode makeChannel(Descriptor& one, Descriptor& other);

/// A socket that listens at the path, or is connected to it, in a folder; the folder's own path may be of any length.
ErrorCode listenAt(int folder, const char* name, Descriptor& listener);
ErrorCode connectTo(int folder, const char* name, std::uint32_t timeout, Descriptor& connection);

/// 0, or an error number; nobody at the other end gives errorBrokenPipe.
ErrorCode sendMessage(int socket, const std::string& message);
ErrorCode sendMessage(int socket, const std::string& message, const std::array<int, 2>& descriptors);

/// Waits so many milliseconds for a message: errorServiceRequestTimeout when none came, errorBrokenPipe when none will.
ErrorCode receiveMessage(int socket, std::uint32_t timeout, std::size_t limit, std::string& message);
/// The same without waiting, and with the descriptors of the message.
ErrorCode receiveMessage(int socket, std::size_t limit, std::string& message, std::array<Descriptor, 2>& descriptors);

/// Whether the message that waits at the socket begins so; false for what is no socket.
bool beginsWith(int socket, const std::string& beginning);

/// Whether the other end is root's or this process's user's.
bool isPeerAllowed(int socket);

}  // namespace KestSupport::platform
