// Calls of functions that take a lock of the C runtime (uninterrupted.h: RuntimeCall), and forks, which wait for them.
#pragma once

#include "platform/emulated/thread_record.h"

namespace KestSupport::platform {

/// Keeps other threads from beginning a call, and returns when none of them is in one. Called by a thread that forks,
/// before it takes the dispatcher lock.
void beginFork(ThreadRecord& self) noexcept;
/// Ends that in the parent.
void endFork(ThreadRecord& self) noexcept;
/// Forgets the calls of the parent's threads. `begun` says whether `self`, which forked, has called beginFork.
void forgetRuntimeCalls(ThreadRecord& self, bool begun) noexcept;

}  // namespace KestSupport::platform
