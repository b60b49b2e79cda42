// Recursive locks compared with that of the standard library: free, two levels deep, and contended by two threads.
#include <mutex>

#include "bench_kit.h"
#include "support/locks.h"
#include "taking.h"

using namespace KestSupport;
using KestBench::lockAndUnlock;

namespace {

struct CriticalSection : KestCriticalSectionObject {
    CriticalSection() : KestCriticalSectionObject(true) {}
};

}  // namespace

void KestBench::registerBenches() {
    const std::string peer = "std::recursive_mutex";
    Comparison("locks/free")
        .ours(lockAndUnlock<KestMutexObject, 1>)
        .peer(peer, 0.8, lockAndUnlock<std::recursive_mutex, 1>);
    Comparison("locks/two levels")
        .ours(lockAndUnlock<KestMutexObject, 2>)
        .peer(peer, 0.85, lockAndUnlock<std::recursive_mutex, 2>);
    Comparison("locks/two threads")
        .threads(2)
        .realTime()
        .ours(lockAndUnlock<KestMutexObject, 1>)
        .peer(peer, 1.0, lockAndUnlock<std::recursive_mutex, 1>);
    Comparison("locks/critical section free")
        .ours(lockAndUnlock<CriticalSection, 1>)
        .peer(peer, 1.05, lockAndUnlock<std::recursive_mutex, 1>);
    Comparison("locks/guard")
        .ours([](benchmark::State& state) {
            KestCriticalSectionObject lock;
            for (auto _ : state)
                const KestCriticalSection guard(lock, true);
        })
        .peer("std::lock_guard", 1.0, [](benchmark::State& state) {
            std::recursive_mutex lock;
            for (auto _ : state)
                const std::lock_guard guard(lock);
        });
}
