// Starting a thread and waiting for its end.
#include <thread>

#include "bench_kit.h"
#include "support/threads.h"

using namespace KestSupport;

void KestBench::registerBenches() {
    Comparison("threads/start and join")
        .realTime()
        .ours([](benchmark::State& state) {
            for (auto _ : state) {
                KestThread thread;
                thread.start();
                thread.waitForThreadExit();
            }
        })
        .peer("std::thread", 1.05, [](benchmark::State& state) {
            for (auto _ : state)
                std::thread([] {}).join();
        });
}
