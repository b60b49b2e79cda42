// The dispatcher lock is held during the fork, so the tables and queues are consistent in the child.
#include "platform/fork.h"

#include <pthread.h>

#include <array>

#include "platform/emulated/wait_dispatcher.h"
#include "platform/linux/linux_call.h"

namespace KestSupport::platform {
namespace {

constinit std::array<ForkHandler, 8> g_handlers{};
constinit std::atomic<std::size_t> g_handlerCount{0};

void inChild() {
    resetInForkedChild(t_record);
    for (std::size_t i = 0; i < g_handlerCount.load(std::memory_order_acquire); ++i)
        g_handlers[i]();
}

[[gnu::constructor(101)]] void registerForkHandlers() noexcept {
    errorCall("onForkInChild", [] {
        return pthread_atfork([] { lockForFork(t_record); }, [] { unlockAfterFork(t_record); }, &inChild);
    });
}

}  // namespace

void onForkInChild(ForkHandler handler) noexcept {
    const std::size_t count = g_handlerCount.load(std::memory_order_relaxed);
    if (count == g_handlers.size()) return;
    g_handlers[count] = handler;
    g_handlerCount.store(count + 1, std::memory_order_release);
}

std::uint32_t forkCount() noexcept {
    return g_forks;
}

}  // namespace KestSupport::platform
