// What a process that was made by fork, and runs no other program yet, has to put right: it has one thread, and a copy
// of everything that the other threads of its parent were doing.
//
// The platform layer puts its own state right first. In the child the waits of the other threads are gone, mutexes that
// they owned are abandoned, their handles are signalled, and the only thread has an id of its own.
#pragma once

#include <cstdint>

namespace KestSupport::platform {

/// Called in the child, on its only thread, before fork returns there. The waits work already. It blocks on nothing and
/// makes no thread, since most children run another program at once.
using ForkHandler = void (*)() noexcept;

/// Registers a handler for the time that the library is loaded; at most 8, called in the order of registration. Called
/// by the initialisation of static objects.
void onForkInChild(ForkHandler handler) noexcept;

/// How many forks lie between this process and the one that loaded the library: what carries another number belongs to
/// a thread that this process does not have.
std::uint32_t forkCount() noexcept;

}  // namespace KestSupport::platform
