// Starting and stopping one timer while others are active: a watchdog that is due before all of the others, and one
// that is due amid them.
#include <memory>
#include <vector>

#include "bench_kit.h"
#include "support/timers.h"

#ifdef KEST_HAVE_UV
#include <uv.h>
#endif

namespace {

constexpr int kMinute = 60;
constexpr int kSpread = 3600;  // the others are due between one and two hours from now

struct Case {
    int others;
    double target;
};
constexpr Case kCases[] = {{1, 3}, {1000, 2}, {100000, 1}};

struct Moment {
    const char* name;
    int seconds;
};
constexpr Moment kMoments[] = {{"first of", kMinute}, {"amid", kSpread + kSpread / 2}};

int secondsOfOther(int index, int count) {
    return kSpread + static_cast<int>(static_cast<long long>(index) * 7919 % count * kSpread / count);
}

void startAndStop(benchmark::State& state, int others, int seconds) {
    std::vector<std::unique_ptr<KestSupport::KestTimer>> timers;
    for (int index = 0; index < others; ++index) {
        timers.push_back(std::make_unique<KestSupport::KestTimer>());
        timers.back()->start(secondsOfOther(index, others), 0, true);
    }
    KestSupport::KestTimer timer;
    for (auto _ : state) {
        timer.start(seconds, 0, true);
        timer.stop();
    }
}

#ifdef KEST_HAVE_UV
void startAndStopUv(benchmark::State& state, int others, int seconds) {
    const auto nothing = [](uv_timer_t*) {};
    uv_loop_t loop;
    uv_loop_init(&loop);
    std::vector<uv_timer_t> timers(static_cast<std::size_t>(others) + 1);
    for (uv_timer_t& timer : timers)
        uv_timer_init(&loop, &timer);
    for (int index = 0; index < others; ++index) {
        const auto delay = static_cast<std::uint64_t>(secondsOfOther(index, others)) * 1000;
        uv_timer_start(&timers[static_cast<std::size_t>(index)], nothing, delay, 0);
    }
    uv_timer_t& timer = timers.back();
    for (auto _ : state) {
        uv_timer_start(&timer, nothing, static_cast<std::uint64_t>(seconds) * 1000, 0);
        uv_timer_stop(&timer);
    }
    for (uv_timer_t& other : timers)
        uv_close(reinterpret_cast<uv_handle_t*>(&other), nullptr);
    uv_run(&loop, UV_RUN_DEFAULT);
    uv_loop_close(&loop);
}
#endif

}  // namespace

void KestBench::registerBenches() {
    for (const Moment& moment : kMoments) {
        for (const Case& row : kCases) {
            Comparison comparison(std::string("timers/start and stop ") + moment.name + " " +
                                  std::to_string(row.others) + " others");
            comparison.ours([=](benchmark::State& state) { startAndStop(state, row.others, moment.seconds); });
#ifdef KEST_HAVE_UV
            comparison.peer("uv_timer", row.target,
                            [=](benchmark::State& state) { startAndStopUv(state, row.others, moment.seconds); });
#endif
        }
    }
}
