#include "platform/emulated/barrier.h"

#include <linux/membarrier.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/linux/linux_call.h"

namespace KestSupport::platform {

constinit std::atomic<bool> g_barrierWorks{false};

namespace {

bool callMembarrier(int command) noexcept {
    return systemCall("barrierInAllThreads", [=] { return syscall(SYS_membarrier, command, 0, 0); }) == 0;
}

// A child that was made by fork and has not called exec keeps the registration of its parent.
const bool g_registered = [] {
    const bool works = callMembarrier(MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED);
    g_barrierWorks.store(works, std::memory_order_relaxed);
    return works;
}();

}  // namespace

bool requestBarrier() noexcept {
    if (g_registered && callMembarrier(MEMBARRIER_CMD_PRIVATE_EXPEDITED)) return true;
    g_barrierWorks.store(false, std::memory_order_relaxed);
    FutexWord fence{0};
    fence.fetch_add(1, std::memory_order_seq_cst);
    return !g_registered;
}

bool barrierWasRefused() noexcept {
    return g_registered && !g_barrierWorks.load(std::memory_order_relaxed);
}

}  // namespace KestSupport::platform
