// Acquires and releases kLevels levels of a lock, which all threads of a measurement share.
#pragma once

#include <benchmark/benchmark.h>

namespace KestBench {

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

}  // namespace KestBench
