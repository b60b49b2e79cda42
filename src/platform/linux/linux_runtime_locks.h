// Locks of the C and C++ runtimes, which every thread needs. An interrupted thread that holds one must not be suspended
// or terminated. The signal handler of the interrupted thread calls these functions.
#pragma once

namespace KestSupport::platform {

/// Returns whether the calling thread, interrupted at the context, may hold a lock of the allocator or holds the lock
/// of stdout or stderr.
bool mayHoldRuntimeLock(const void* context) noexcept;
/// Releases the locks of standard streams that the calling thread holds. Called before a forced termination.
void releaseStandardStreams() noexcept;

}  // namespace KestSupport::platform
