// One word counts the threads that are in a call. A thread that forks sets kForking, so that no other thread begins
// one, and waits until the count is 0. All waits are limited: without a limit, a thread that holds a lock of the
// program while it begins a call could wait for a fork that waits for that lock.
#include "platform/emulated/runtime_calls.h"

#include "platform/emulated/futex_lock.h"
#include "platform/uninterrupted.h"

namespace KestSupport::platform {
namespace {

constexpr std::uint32_t kForking = 1U << 31;
constexpr std::uint32_t kLongestWait = 5000;  // milliseconds

constinit FutexWord g_forkLock{0};         // a FutexLock of the thread that forks; taken before the dispatcher lock
constinit FutexWord g_calls{0};            // the number of threads in a call; kForking while a thread forks
constinit FutexWord g_waitingForForks{0};  // the number of threads that a fork keeps from beginning a call

// Waits until `isReached` accepts the word, and returns the word.
template <typename Test>
std::uint32_t await(FutexWord& word, const Test& isReached) noexcept {
    const Deadline giveUp = Deadline::after(kLongestWait);
    std::uint32_t present = word.load(std::memory_order_acquire);
    while (!isReached(present) && !giveUp.hasPassed()) {
        futexWait(word, present, giveUp);
        present = word.load(std::memory_order_acquire);
    }
    return present;
}

[[gnu::noinline]] std::uint32_t awaitFork() noexcept {
    g_waitingForForks.fetch_add(1);
    const std::uint32_t calls = await(g_calls, [](std::uint32_t word) { return (word & kForking) == 0; });
    if (g_waitingForForks.fetch_sub(1) == 1) futexWake(&g_waitingForForks, kAllSleepers);
    return calls;
}

}  // namespace

RuntimeCall::RuntimeCall() noexcept {
    ThreadRecord& self = t_record;
    Region::begin(self);
    self.runtimeCalls = self.runtimeCalls + 1;
    if (self.runtimeCalls != 1) return;
    std::uint32_t calls = g_calls.load(std::memory_order_relaxed);
    do {
        if ((calls & kForking) != 0) [[unlikely]]
            calls = awaitFork();
    } while (!g_calls.compare_exchange_weak(calls, calls + 1, std::memory_order_acquire, std::memory_order_relaxed));
}

RuntimeCall::~RuntimeCall() {
    ThreadRecord& self = t_record;
    if (self.runtimeCalls == 1) {
        const std::uint32_t before = g_calls.fetch_sub(1, std::memory_order_release);
        if ((before & kForking) != 0) futexWake(&g_calls, kAllSleepers);
    }
    self.runtimeCalls = self.runtimeCalls - 1;
    Region::end(self);
}

// Threads that waited for an earlier fork go first. Otherwise threads that fork in turns would keep them waiting.
void beginFork(ThreadRecord& self) noexcept {
    FutexLock::lock(g_forkLock);
    await(g_waitingForForks, [](std::uint32_t waiting) { return waiting == 0; });
    const std::uint32_t own = self.runtimeCalls == 0 ? 0 : 1;
    self.runtimeCalls = self.runtimeCalls + 1;  // this thread may begin a call in another handler of the fork
    g_calls.fetch_or(kForking, std::memory_order_relaxed);
    await(g_calls, [own](std::uint32_t calls) { return (calls & ~kForking) <= own; });
}

void endFork(ThreadRecord& self) noexcept {
    self.runtimeCalls = self.runtimeCalls - 1;
    g_calls.fetch_and(~kForking, std::memory_order_release);
    futexWake(&g_calls, kAllSleepers);
    FutexLock::unlock(g_forkLock);
}

void forgetRuntimeCalls(ThreadRecord& self, bool begun) noexcept {
    if (begun) self.runtimeCalls = self.runtimeCalls - 1;
    g_calls.store(self.runtimeCalls == 0 ? 0 : 1, std::memory_order_relaxed);
    g_waitingForForks.store(0, std::memory_order_relaxed);
    g_forkLock.store(0, std::memory_order_relaxed);
}

}  // namespace KestSupport::platform
