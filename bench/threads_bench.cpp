// Start of a thread and wait for its end, also beside processes that use all processors.
#include <thread>

#include "bench_kit.h"
#include "support/threads.h"

using namespace KestSupport;

namespace {

void startAndWait(benchmark::State& state) {
    for (auto _ : state) {
        KestThread thread;
        thread.start();
        thread.waitForThreadExit();
    }
}

void startAndJoin(benchmark::State& state) {
    for (auto _ : state)
        std::thread([] {}).join();
}

}  // namespace

void KestBench::registerBenches() {
    Comparison("threads/start and join").realTime().ours(startAndWait).peer("std::thread", 1.0, startAndJoin);
    Comparison("threads/start and join beside busy processes")
        .besideBusyProcesses()
        .iterations(500)
        .ours(startAndWait)
        .peer("std::thread", 1.2, startAndJoin);
}
