// Messages between the processes of services. A channel keeps the bounds of messages: one send, one receive. See
// system.h for what applies to handles in general.
//
//   Channel      one end of a connection
//   Listener     takes connections under a name in a folder
//   WakeUp       wakes a thread that waits in awaitInput
//   awaitInput   waits for several of these
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "platform/services/system.h"

namespace KestSupport::platform {

/// A message with a file and a folder attached.
struct Delivery {
    std::string message;
    File file;
    Folder folder;
};

class Channel : public SystemHandle {
  public:
    using SystemHandle::SystemHandle;

    /// Two connected ends.
    static Result<std::pair<Channel, Channel>> makePair() noexcept;
    /// Connects to the listener of that name in the folder, whose own path may be of any length. Waits `timeout`
    /// milliseconds while the listener has too many callers: errorServiceRequestTimeout. Without a listener:
    /// errorBrokenPipe.
    static Result<Channel> connect(const Folder& folder, const char* name, std::uint32_t timeout) noexcept;

    /// Whether standard input is a channel with a message that begins so. The message stays there.
    static bool standardInputBeginsWith(std::string_view beginning);
    /// A second handle of standard input.
    static Result<Channel> fromStandardInput() noexcept;
    /// Standard input is empty from now on.
    static void detachStandardInput() noexcept;

    /// errorBrokenPipe when the other end is closed.
    ErrorCode send(std::string_view message) const noexcept;
    ErrorCode send(std::string_view message, const File& file, const Folder& folder) const noexcept;
    /// Waits up to `timeout` milliseconds for a message and cuts it to `limit` bytes: errorServiceRequestTimeout when
    /// none arrives, errorBrokenPipe when the other end is closed.
    Result<std::string> receive(std::uint32_t timeout, std::size_t limit) const;
    /// Takes a message with its attachments and does not wait; errorInvalidData for one that is longer than `limit`
    /// or has other attachments.
    Result<Delivery> receiveDelivery(std::size_t limit) const;

    /// Whether the other end is a process of the administrator or of this process's user.
    bool isPeerAllowed() const noexcept;
};

class Listener : public SystemHandle {
  public:
    using SystemHandle::SystemHandle;

    /// Makes the name, which must not exist.
    static Result<Listener> make(const Folder& folder, const char* name) noexcept;
    /// Waits for a connection; errorTooManyOpenFiles when no handle is left for it.
    Result<Channel> accept() const noexcept;
};

class WakeUp : public SystemHandle {
  public:
    using SystemHandle::SystemHandle;

    static Result<WakeUp> make() noexcept;
    /// Input is ready until take is called.
    void signal() const noexcept;
    void take() const noexcept;
};

struct Awaited {
    const SystemHandle* handle;
    bool ready = false;
};

inline constexpr std::size_t kMostAwaited = 32;

/// Waits until one of the handles has input, a connection or a closed other end, at most `timeout` milliseconds
/// (kInfinite of wait.h: without limit), and sets `ready` for each. A signal may end the wait early, with none ready.
ErrorCode awaitInput(std::span<Awaited> awaited, std::uint32_t timeout) noexcept;

}  // namespace KestSupport::platform
