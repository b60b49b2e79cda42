// The keys of a biased lock are ids of attached threads, so the table of threads tells which of them still run.
#include "platform/thread_bias.h"

#include "platform/emulated/barrier.h"
#include "platform/emulated/wait_dispatcher.h"
#include "platform/thread.h"

namespace KestSupport::platform {

std::uint32_t makeThreadKey() noexcept {
    return currentRecord().id;
}

std::uint32_t lifelongThreadKey() noexcept {
    return currentRecord().firstId;
}

bool threadMayRun(std::uint32_t key) noexcept {
    const Dispatcher dispatcher(currentRecord());
    return isAttached(key);
}

void barrierInAllThreads() noexcept {
    if (!requestBarrier()) sleepThread(kDrainTime);
}

bool allThreadsCanBarrier() noexcept {
    return g_barrierWorks.load(std::memory_order_relaxed);
}

}  // namespace KestSupport::platform
