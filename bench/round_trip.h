// Round trips between two threads with a baton: a class whose give() wakes the other thread and whose take() waits.
#pragma once

#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace KestBench {

// kAsleep: a pause before each round trip, so that the other thread sleeps and no longer spins. Pauses are not
// measured.
template <typename Baton, bool kAsleep = false>
void roundTrip(benchmark::State& state) {
    Baton there, back;
    std::atomic<bool> end{false};
    std::thread partner([&] {
        for (;;) {
            there.take();
            if (end) return;
            back.give();
        }
    });
    for (auto _ : state) {
        if (kAsleep) {
            state.PauseTiming();
            std::this_thread::sleep_for(std::chrono::microseconds(200));
            state.ResumeTiming();
        }
        there.give();
        back.take();
    }
    end = true;
    there.give();
    partner.join();
}

}  // namespace KestBench
