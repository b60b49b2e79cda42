// Channels are sockets that keep the bounds of messages (SOCK_SEQPACKET); attachments are descriptors.
#include "platform/services/channel.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/deadline.h"
#include "platform/linux/linux_call.h"
#include "platform/linux/linux_service_handle.h"
#include "platform/wait.h"

namespace KestSupport::platform {
namespace {

constexpr int kSocketKind = SOCK_SEQPACKET | SOCK_CLOEXEC;
constexpr int kBacklog = 64;

template <typename Handle>
Result<Handle> opened(int number) noexcept {
    if (number < 0) return systemFailure();
    return Handle(number);
}

template <typename Handle>
Result<Handle> openSocket() noexcept {
    return opened<Handle>(systemCall("openChannel", [] { return ::socket(AF_UNIX, kSocketKind, 0); }));
}

// Calls bind or connect. The path leads through the folder's descriptor, since an address holds short paths only.
template <typename Call>
ErrorCode withAddress(const char* call, const Folder& folder, const char* name, Call&& use) noexcept {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d/%s", descriptorOf(folder), name);
    const int result =
        systemCall(call, [&] { return use(reinterpret_cast<const sockaddr*>(&address), socklen_t{sizeof address}); });
    return outcomeOf(result);
}

// A message with room for two descriptors.
struct Envelope {
    Envelope(void* data, std::size_t size) noexcept : block{data, size} {
        header.msg_iov = &block;
        header.msg_iovlen = 1;
        header.msg_control = space;
        header.msg_controllen = sizeof space;
    }
    explicit Envelope(std::string_view message) noexcept
        : Envelope(const_cast<char*>(message.data()), message.size()) {}
    Envelope(const Envelope&) = delete;
    Envelope& operator=(const Envelope&) = delete;

    iovec block;
    alignas(cmsghdr) char space[CMSG_SPACE(2 * sizeof(int))] = {};
    msghdr header = {};
};

ErrorCode sendBlock(const Channel& channel, const msghdr& header) noexcept {
    const ssize_t size =
        systemCall("sendMessage", [&] { return ::sendmsg(descriptorOf(channel), &header, MSG_NOSIGNAL); });
    // A listener that ends resets the connections that it has not accepted.
    if (size < 0 && errno == ECONNRESET) return errorBrokenPipe;
    return size >= 0 ? errorSuccess : systemFailure();
}

ErrorCode awaitMessage(const Channel& channel, std::uint32_t timeout) noexcept {
    const Deadline deadline = Deadline::after(timeout);
    for (;;) {
        const std::uint32_t left = deadline.rest();
        if (left == 0) return errorServiceRequestTimeout;
        pollfd polled{descriptorOf(channel), POLLIN, 0};
        if (const int error = injectedFault("awaitMessage"); error != 0) return errorFromErrno(error);
        const int ready = ::poll(&polled, 1, static_cast<int>(left));
        if (ready > 0) return 0;
        if (ready < 0 && errno != EINTR) return systemFailure();
    }
}

// connect waits up to the limit of a send while the listener has too many callers. It is called again after a signal,
// so the limit is the rest of the time. Returns false, with ETIMEDOUT, when the rest is 0.
bool limitSending(const Channel& channel, Deadline deadline) noexcept {
    const std::uint32_t left = deadline.rest();
    timeval limit{};
    limit.tv_sec = static_cast<time_t>(left / 1000);
    limit.tv_usec = static_cast<suseconds_t>(left % 1000 * 1000);
    errno = ETIMEDOUT;
    return left > 0 && ::setsockopt(descriptorOf(channel), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) == 0;
}

ErrorCode receiveError(ssize_t size) noexcept {
    if (size > 0) return 0;
    return size == 0 || errno == ECONNRESET ? errorBrokenPipe : systemFailure();
}

}  // namespace

Result<std::pair<Channel, Channel>> Channel::makePair() noexcept {
    int ends[2];
    if (systemCall("openChannel", [&] { return ::socketpair(AF_UNIX, kSocketKind, 0, ends); }) != 0) {
        return systemFailure();
    }
    return std::pair(Channel(ends[0]), Channel(ends[1]));
}

Result<Channel> Channel::connect(const Folder& folder, const char* name, std::uint32_t timeout) noexcept {
    Result<Channel> channel = openSocket<Channel>();
    if (!channel) return channel;
    const Deadline deadline = Deadline::after(timeout);
    const ErrorCode error = withAddress("connectChannel", folder, name, [&](const sockaddr* address, socklen_t size) {
        if (!limitSending(*channel, deadline)) return -1;
        const int result = ::connect(descriptorOf(*channel), address, size);
        if (result != 0 && errno == ECONNREFUSED) errno = EPIPE;
        if (result != 0 && errno == EAGAIN) errno = ETIMEDOUT;
        return result;
    });
    if (error == 0) return channel;
    if (error == errorFileNotFound) return Failure{errorBrokenPipe};
    return Failure{error == errorWaitTimeout ? errorServiceRequestTimeout : error};
}

bool Channel::standardInputBeginsWith(std::string_view beginning) {
    std::string buffer(beginning.size(), '\0');
    const ssize_t size = ::recv(STDIN_FILENO, buffer.data(), buffer.size(), MSG_PEEK | MSG_DONTWAIT);
    return size == static_cast<ssize_t>(beginning.size()) && buffer == beginning;
}

Result<Channel> Channel::fromStandardInput() noexcept {
    return opened<Channel>(
        systemCall("takeStandardInput", [] { return ::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1); }));
}

void Channel::detachStandardInput() noexcept {
    const SystemHandle nothing = openNullDevice();
    if (nothing.isOpen()) ::dup2(descriptorOf(nothing), STDIN_FILENO);
}

ErrorCode Channel::send(std::string_view message) const noexcept {
    Envelope envelope(message);
    envelope.header.msg_controllen = 0;
    return sendBlock(*this, envelope.header);
}

ErrorCode Channel::send(std::string_view message, const File& file, const Folder& folder) const noexcept {
    const std::array<int, 2> descriptors{descriptorOf(file), descriptorOf(folder)};
    Envelope envelope(message);
    cmsghdr* const attached = CMSG_FIRSTHDR(&envelope.header);
    attached->cmsg_level = SOL_SOCKET;
    attached->cmsg_type = SCM_RIGHTS;
    attached->cmsg_len = CMSG_LEN(sizeof descriptors);
    std::memcpy(CMSG_DATA(attached), descriptors.data(), sizeof descriptors);
    return sendBlock(*this, envelope.header);
}

Result<std::string> Channel::receive(std::uint32_t timeout, std::size_t limit) const {
    if (const ErrorCode error = awaitMessage(*this, timeout); error != 0) return Failure{error};
    std::string buffer(limit, '\0');
    const ssize_t size = systemCall(
        "receiveMessage", [&] { return ::recv(descriptorOf(*this), buffer.data(), buffer.size(), MSG_DONTWAIT); });
    if (const ErrorCode error = receiveError(size); error != 0) return Failure{error};
    buffer.resize(static_cast<std::size_t>(size));
    return buffer;
}

Result<Delivery> Channel::receiveDelivery(std::size_t limit) const {
    std::string buffer(limit, '\0');
    Envelope envelope(buffer.data(), buffer.size());
    msghdr& header = envelope.header;
    const ssize_t size = systemCall(
        "receiveMessage", [&] { return ::recvmsg(descriptorOf(*this), &header, MSG_DONTWAIT | MSG_CMSG_CLOEXEC); });
    if (const ErrorCode error = receiveError(size); error != 0) return Failure{error};
    std::array<int, 2> numbers{-1, -1};
    const cmsghdr* const attached = CMSG_FIRSTHDR(&header);
    if (attached != nullptr && attached->cmsg_level == SOL_SOCKET && attached->cmsg_type == SCM_RIGHTS) {
        std::memcpy(numbers.data(), CMSG_DATA(attached), attached->cmsg_len - CMSG_LEN(0));
    }
    Delivery delivery{{}, File(numbers[0]), Folder(numbers[1])};
    if ((header.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) != 0 || !delivery.folder.isOpen()) {
        return Failure{errorInvalidData};
    }
    buffer.resize(static_cast<std::size_t>(size));
    delivery.message = std::move(buffer);
    return delivery;
}

bool Channel::isPeerAllowed() const noexcept {
    ucred peer{};
    socklen_t size = sizeof peer;
    const int result = systemCall(
        "peerUser", [&] { return ::getsockopt(descriptorOf(*this), SOL_SOCKET, SO_PEERCRED, &peer, &size); });
    return result == 0 && (peer.uid == kAdministrator || peer.uid == currentUser());
}

Result<Listener> Listener::make(const Folder& folder, const char* name) noexcept {
    Result<Listener> listener = openSocket<Listener>();
    if (!listener) return listener;
    const ErrorCode error = withAddress("listen", folder, name, [&](const sockaddr* address, socklen_t size) {
        return ::bind(descriptorOf(*listener), address, size);
    });
    if (error != 0) return Failure{error};
    if (systemCall("listen", [&] { return ::listen(descriptorOf(*listener), kBacklog); }) == 0) return listener;
    return systemFailure();
}

Result<Channel> Listener::accept() const noexcept {
    return opened<Channel>(
        systemCall("acceptChannel", [&] { return ::accept4(descriptorOf(*this), nullptr, nullptr, SOCK_CLOEXEC); }));
}

Result<WakeUp> WakeUp::make() noexcept {
    return opened<WakeUp>(systemCall("makeWakeUp", [] { return ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK); }));
}

void WakeUp::signal() const noexcept {
    const std::uint64_t one = 1;
    // A full counter has woken the thread already.
    static_cast<void>(!::write(descriptorOf(*this), &one, sizeof one));
}

void WakeUp::take() const noexcept {
    std::uint64_t count = 0;
    static_cast<void>(!::read(descriptorOf(*this), &count, sizeof count));
}

ErrorCode awaitInput(std::span<Awaited> awaited, std::uint32_t timeout) noexcept {
    std::array<pollfd, kMostAwaited> polled{};
    for (std::size_t i = 0; i < awaited.size(); ++i)
        polled[i] = {descriptorOf(*awaited[i].handle), POLLIN, 0};
    const int ready = ::poll(polled.data(), awaited.size(), timeout == kInfinite ? -1 : static_cast<int>(timeout));
    if (ready < 0 && errno != EINTR) return systemFailure();
    for (std::size_t i = 0; i < awaited.size(); ++i)
        awaited[i].ready = ready > 0 && polled[i].revents != 0;
    return 0;
}

}  // namespace KestSupport::platform
