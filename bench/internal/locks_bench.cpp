// The platform layer's mutex compared with that of the standard library: free, two levels deep, and contended by two
// threads.
#include <mutex>

#include "bench_kit.h"
#include "platform/wait.h"
#include "taking.h"

using namespace KestSupport;
using KestBench::lockAndUnlock;

namespace {

struct PlatformMutex {
    platform::OwnedHandle handle{platform::createMutex()};
    void lock() { platform::waitForOne(handle.get(), platform::kInfinite); }
    void unlock() { platform::releaseMutex(handle.get()); }
};

}  // namespace

void KestBench::registerBenches() {
    const std::string peer = "std::recursive_mutex";
    Comparison("locks/platform mutex free")
        .ours(lockAndUnlock<PlatformMutex, 1>)
        .peer(peer, lockAndUnlock<std::recursive_mutex, 1>);
    Comparison("locks/platform mutex two levels")
        .ours(lockAndUnlock<PlatformMutex, 2>)
        .peer(peer, lockAndUnlock<std::recursive_mutex, 2>);
    Comparison("locks/platform mutex two threads")
        .threads(2)
        .realTime()
        .ours(lockAndUnlock<PlatformMutex, 1>)
        .peer(peer, lockAndUnlock<std::recursive_mutex, 1>);
}
