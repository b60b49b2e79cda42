// Locks of the C and C++ runtimes, which no thread of the process can do without. An interrupted thread that holds one
// must not be suspended or terminated. The calls are for the signal handler of the interrupted thread.
#pragma once

namespace KestSupport::platform {

/// True when the calling thread, interrupted at the context, may hold a lock of the allocator or holds the lock of
/// stdout or stderr.
bool mayHoldRuntimeLock(const void* context) noexcept;
/// Releases the locks of standard streams that the calling thread holds, before it is terminated anyway.
void releaseStandardStreams() noexcept;

}  // namespace KestSupport::platform
