// Recursive locks against the standard library's: free, two levels deep, and with two threads contending.
#include <mutex>

#include "bench_kit.h"
#include "platform/wait.h"
#include "support/locks.h"

using namespace KestSupport;

namespace {

struct PlatformMutex {
    platform::OwnedHandle handle{platform::createMutex()};
    void lock() { platform::waitForOne(handle.get(), platform::kInfinite); }
    void unlock() { platform::releaseMutex(handle.get()); }
};

template <typename Lock, int kLevels>
void lockAndUnlock(benchmark::State& state) {
    static Lock lock;
    for (auto _ : state) {
        for (int i = 0; i < kLevels; ++i)
            lock.lock();
        for (int i = 0; i < kLevels; ++i)
            lock.unlock();
    }
}

}  // namespace

void KestBench::registerBenches() {
    Comparison("locks/platform mutex free")
        .ours(lockAndUnlock<PlatformMutex, 1>)
        .peer("std::recursive_mutex", 0.7, lockAndUnlock<std::recursive_mutex, 1>);
    Comparison("locks/platform mutex two levels")
        .ours(lockAndUnlock<PlatformMutex, 2>)
        .peer("std::recursive_mutex", 0.4, lockAndUnlock<std::recursive_mutex, 2>);
    Comparison("locks/platform mutex two threads")
        .threads(2)
        .ours(lockAndUnlock<PlatformMutex, 1>)
        .peer("std::recursive_mutex", 1.0, lockAndUnlock<std::recursive_mutex, 1>);
    Comparison("locks/KestCriticalSection free")
        .ours([](benchmark::State& state) {
            KestCriticalSectionObject lock;
            for (auto _ : state)
                const KestCriticalSection guard(lock, true);
        })
        .peer("std::recursive_mutex", 1.0, [](benchmark::State& state) {
            std::recursive_mutex lock;
            for (auto _ : state)
                const std::lock_guard guard(lock);
        });
}
