// The seam in front of the operating system. Every system call whose failure matters asks it first, by the call's name,
// so that a test can make the Nth one fail, once or from then on. Without a hook it costs one load.
//
// Threads: the hook may be called by any thread, also while the library holds internal locks; it takes no lock of the
// library and calls nothing of it.
#pragma once

#include <atomic>

namespace KestSupport::platform {

/// Returns 0 to let the named call go on, or the errno value that it shall fail with.
using FaultHook = int (*)(const char* call) noexcept;

namespace internal {
inline std::atomic<FaultHook> g_faultHook{nullptr};
}  // namespace internal

/// Installs the hook for the whole process; null removes it.
inline void setFaultHook(FaultHook hook) noexcept {
    internal::g_faultHook.store(hook, std::memory_order_release);
}

/// The errno value that the named call is to fail with, 0 for none.
inline int injectedFault(const char* call) noexcept {
    const FaultHook hook = internal::g_faultHook.load(std::memory_order_acquire);
    return hook == nullptr ? 0 : hook(call);
}

}  // namespace KestSupport::platform
