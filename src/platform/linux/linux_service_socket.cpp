#include "platform/linux/linux_service_socket.h"

#include <poll.h>
#include <sys/time.h>
#include <sys/un.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "platform/clock.h"
#include "platform/linux/linux_call.h"

namespace KestSupport::platform {
namespace {

constexpr int kSocketKind = SOCK_SEQPACKET | SOCK_CLOEXEC;
constexpr int kBacklog = 64;

// Through the descriptor of its folder, since an address has room for a short path only.
sockaddr_un addressOf(int folder, const char* name) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d/%s", folder, name);
    return address;
}

template <typename Call>
ErrorCode withAddress(const char* call, int folder, const char* name, Call&& use) {
    const sockaddr_un address = addressOf(folder, name);
    const int result =
        systemCall(call, [&] { return use(reinterpret_cast<const sockaddr*>(&address), socklen_t{sizeof address}); });
    return result == 0 ? 0 : errorFromErrno(errno);
}

ErrorCode openSocket(Descriptor& opened) {
    opened = Descriptor(systemCall("socket", [] { return ::socket(AF_UNIX, kSocketKind, 0); }));
    return opened.isOpen() ? 0 : errorFromErrno(errno);
}

// A message with room for two descriptors.
struct Envelope {
    Envelope(void* data, std::size_t size) : block{data, size} {
        header.msg_iov = &block;
        header.msg_iovlen = 1;
        header.msg_control = space;
        header.msg_controllen = sizeof space;
    }
    Envelope(const Envelope&) = delete;
    Envelope& operator=(const Envelope&) = delete;

    iovec block;
    alignas(cmsghdr) char space[CMSG_SPACE(2 * sizeof(int))] = {};
    msghdr header = {};
};

ErrorCode sendBlock(int socket, const msghdr& header) {
    return systemCall("sendmsg", [&] { return ::sendmsg(socket, &header, MSG_NOSIGNAL); }) >= 0 ? 0
                                                                                                : errorFromErrno(errno);
}

// Waits until there is something to receive.
ErrorCode awaitInput(int socket, std::uint32_t timeout) {
    const std::int64_t end = steadyTime() + std::int64_t{timeout} * 1'000'000;
    for (;;) {
        const std::int64_t left = (end - steadyTime() + 999'999) / 1'000'000;
        if (left <= 0) return errorServiceRequestTimeout;
        pollfd polled{socket, POLLIN, 0};
        if (const int error = injectedFault("poll"); error != 0) return errorFromErrno(error);
        const int ready = ::poll(&polled, 1, static_cast<int>(left));
        if (ready > 0) return 0;
        if (ready < 0 && errno != EINTR) return errorFromErrno(errno);
    }
}

// Connecting waits as long as sending while the other side has too many callers. A signal begins the wait again, so the
// limit is what is left. False, with ETIMEDOUT, when nothing is left.
bool limitSending(int socket, std::int64_t end) {
    const std::int64_t left = (end - steadyTime()) / 1000;
    timeval limit{};
    limit.tv_sec = static_cast<time_t>(left / 1'000'000);
    limit.tv_usec = static_cast<suseconds_t>(left % 1'000'000);
    errno = ETIMEDOUT;
    return left > 0 && ::setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) == 0;
}

ErrorCode receivedError(ssize_t size) {
    if (size > 0) return 0;
    return size == 0 || errno == ECONNRESET ? errorBrokenPipe : errorFromErrno(errno);
}

}  // namespace

std::uint32_t serviceTimeout() {
    constexpr std::uint32_t usual = 30'000;
    const char* const text = std::getenv("KEST_SERVICE_TIMEOUT");
    if (text == nullptr) return usual;
    constexpr std::uint32_t most = 24U * 60 * 60 * 1000;
    std::uint32_t value = 0;
    const std::string_view digits = text;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    const bool whole = error == std::errc() && end == digits.data() + digits.size();
    return whole && value > 0 && value <= most ? value : usual;
}

ErrorCode makeChannel(Descriptor& one, Descriptor& other) {
    int ends[2];
    if (systemCall("socketpair", [&] { return ::socketpair(AF_UNIX, kSocketKind, 0, ends); }) != 0) {
        return errorFromErrno(errno);
    }
    one = Descriptor(ends[0]);
    other = Descriptor(ends[1]);
    return 0;
}

ErrorCode listenAt(int folder, const char* name, Descriptor& listener) {
    Descriptor opened;
    if (const ErrorCode error = openSocket(opened); error != 0) return error;
    const ErrorCode error = withAddress("bind", folder, name, [&](const sockaddr* address, socklen_t size) {
        return ::bind(opened.get(), address, size);
    });
    if (error != 0) return error;
    if (systemCall("listen", [&] { return ::listen(opened.get(), kBacklog); }) != 0) return errorFromErrno(errno);
    listener = std::move(opened);
    return 0;
}

ErrorCode connectTo(int folder, const char* name, std::uint32_t timeout, Descriptor& connection) {
    Descriptor opened;
    if (const ErrorCode error = openSocket(opened); error != 0) return error;
    const std::int64_t end = steadyTime() + std::int64_t{timeout} * 1'000'000;
    const ErrorCode error = withAddress("connect", folder, name, [&](const sockaddr* address, socklen_t size) {
        if (!limitSending(opened.get(), end)) return -1;
        const int result = ::connect(opened.get(), address, size);
        if (result != 0 && errno == ECONNREFUSED) errno = EPIPE;
        if (result != 0 && errno == EAGAIN) errno = ETIMEDOUT;
        return result;
    });
    if (error == 0) connection = std::move(opened);
    if (error == errorFileNotFound) return errorBrokenPipe;
    return error == errorWaitTimeout ? errorServiceRequestTimeout : error;
}

ErrorCode sendMessage(int socket, const std::string& message) {
    Envelope envelope(const_cast<char*>(message.data()), message.size());
    envelope.header.msg_controllen = 0;
    return sendBlock(socket, envelope.header);
}

ErrorCode sendMessage(int socket, const std::string& message, const std::array<int, 2>& descriptors) {
    Envelope envelope(const_cast<char*>(message.data()), message.size());
    cmsghdr* const attached = CMSG_FIRSTHDR(&envelope.header);
    attached->cmsg_level = SOL_SOCKET;
    attached->cmsg_type = SCM_RIGHTS;
    attached->cmsg_len = CMSG_LEN(sizeof descriptors);
    std::memcpy(CMSG_DATA(attached), descriptors.data(), sizeof descriptors);
    return sendBlock(socket, envelope.header);
}

ErrorCode receiveMessage(int socket, std::uint32_t timeout, std::size_t limit, std::string& message) {
    if (const ErrorCode error = awaitInput(socket, timeout); error != 0) return error;
    std::string buffer(limit, '\0');
    const ssize_t size = systemCall("recv", [&] { return ::recv(socket, buffer.data(), buffer.size(), MSG_DONTWAIT); });
    if (const ErrorCode error = receivedError(size); error != 0) return error;
    buffer.resize(static_cast<std::size_t>(size));
    message = std::move(buffer);
    return 0;
}

ErrorCode receiveMessage(int socket, std::size_t limit, std::string& message, std::array<Descriptor, 2>& descriptors) {
    std::string buffer(limit, '\0');
    Envelope envelope(buffer.data(), buffer.size());
    msghdr& header = envelope.header;
    std::array<int, 2> numbers{-1, -1};
    const ssize_t size =
        systemCall("recvmsg", [&] { return ::recvmsg(socket, &header, MSG_DONTWAIT | MSG_CMSG_CLOEXEC); });
    if (const ErrorCode error = receivedError(size); error != 0) return error;
    const cmsghdr* const attached = CMSG_FIRSTHDR(&header);
    if (attached != nullptr && attached->cmsg_level == SOL_SOCKET && attached->cmsg_type == SCM_RIGHTS) {
        std::memcpy(numbers.data(), CMSG_DATA(attached), attached->cmsg_len - CMSG_LEN(0));
    }
    for (std::size_t i = 0; i < numbers.size(); ++i)
        descriptors[i] = Descriptor(numbers[i]);
    if ((header.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) != 0 || !descriptors[1].isOpen()) return errorInvalidData;
    buffer.resize(static_cast<std::size_t>(size));
    message = std::move(buffer);
    return 0;
}

bool beginsWith(int socket, const std::string& beginning) {
    std::string buffer(beginning.size(), '\0');
    const ssize_t size = ::recv(socket, buffer.data(), buffer.size(), MSG_PEEK | MSG_DONTWAIT);
    return size == static_cast<ssize_t>(beginning.size()) && buffer == beginning;
}

bool isPeerAllowed(int socket) {
    ucred peer{};
    socklen_t size = sizeof peer;
    const int result =
        systemCall("getsockopt", [&] { return ::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size); });
    return result == 0 && (peer.uid == 0 || peer.uid == ::geteuid());
}

}  // namespace KestSupport::platform
