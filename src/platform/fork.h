// Repairs in a child process that was made by fork and runs no other program yet. It has one thread, and copies of the
// state of all threads of its parent.
//
// The platform layer repairs its own state first. In the child the waits of the other threads are removed, the mutexes
// that they owned are abandoned, their handles are signalled, and the only thread has a new id.
#pragma once

#include <cstdint>

namespace KestSupport::platform {

/// Runs in the child, on its only thread, before fork returns. The waits work already. Must not block or create a
/// thread, since most children run another program at once.
using ForkHandler = void (*)() noexcept;

/// Registers a handler for as long as the library is loaded. At most 8 handlers are called, in the order of
/// registration. Called while static objects are initialised.
void onForkInChild(ForkHandler handler) noexcept;

/// Returns how many forks separate this process from the one that loaded the library. An object that was marked with
/// another number belongs to a thread of another process.
std::uint32_t forkCount() noexcept;

}  // namespace KestSupport::platform
